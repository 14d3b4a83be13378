#include "emsplatform/platform.h"

#include <charconv>
#include <fstream>
#include <optional>
#include <string_view>

namespace {

std::string_view Trim(std::string_view text)
{
    constexpr std::string_view blanks = " \t\r\v\f";
    const std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

/// Returns the value of a decimal number with an optional sign, if `text` is one and fits an int.
std::optional<int> ParseInt(std::string_view text)
{
    if (text.starts_with('+') && !text.starts_with("+-")) {
        text.remove_prefix(1);
    }
    int value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return value;
}

} // namespace

// The file has lines of the form `key = value`, with optional blanks. `#` begins a comment anywhere
// in a line. If a key occurs more than once, its last line counts. A failure returns 0 and does not
// change `value`; an integer that does not fit an int is one.
int eKorGetRegInt(const char* key, int& value, const char* file)
{
    if (key == nullptr || file == nullptr) {
        return 0;
    }
    std::ifstream config(file);
    std::optional<int> found;
    for (std::string line; std::getline(config, line);) {
        const std::string_view text = std::string_view(line).substr(0, line.find('#'));
        const std::size_t equals = text.find('=');
        if (equals != std::string_view::npos && Trim(text.substr(0, equals)) == key) {
            found = ParseInt(Trim(text.substr(equals + 1)));
        }
    }
    if (!found) {
        return 0;
    }
    value = *found;
    return 1;
}
