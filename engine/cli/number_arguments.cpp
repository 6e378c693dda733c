#include "cli/number_arguments.h"

#include <stdexcept>

namespace tressora::cli {
namespace {

template <class Convert>
auto converted(const std::string& text, const char* name, Convert convert) {
    try {
        return convert(text);
    } catch (const std::out_of_range&) {
        throw std::out_of_range(std::string(name) + " argument out of range");
    } catch (const std::invalid_argument&) {
        throw std::invalid_argument(std::string("invalid ") + name + " argument");
    }
}

}  // namespace

double argumentDouble(const std::string& text) {
    return converted(text, "stod", [](const std::string& t) { return std::stod(t); });
}

float argumentFloat(const std::string& text) {
    return converted(text, "stof", [](const std::string& t) { return std::stof(t); });
}

int argumentInt(const std::string& text) {
    return converted(text, "stoi", [](const std::string& t) {
        std::size_t used = 0;
        const int value = std::stoi(t, &used);
        if (used != t.size()) throw std::invalid_argument("trailing text");
        return value;
    });
}

}  // namespace tressora::cli
