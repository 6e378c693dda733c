#pragma once
// Checks that a call fails with exactly the user's sentence.

#include <gtest/gtest.h>

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

}  // namespace tressora::testing
