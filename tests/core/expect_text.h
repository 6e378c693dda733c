#pragma once
// Checks that a call fails with exactly the user's sentence.

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace tressora::testing {

/// The text of the E that fn throws, or "no failure".
template <class E, class Fn>
std::string failureText(Fn&& fn) {
    try {
        fn();
    } catch (const E& e) {
        return e.what();
    }
    return "no failure";
}

/// The text of the std::invalid_argument that fn throws, or "no failure".
template <class Fn>
std::string fails(Fn&& fn) {
    return failureText<std::invalid_argument>(fn);
}

}  // namespace tressora::testing
