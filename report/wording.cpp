#include "report/wording.h"

#include "binary/demangle.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>

namespace {

std::string formatted(const char* format, double value) {
    char text[400]; // a double has at most 309 digits before the point
    std::snprintf(text, sizeof text, format, value);
    return text;
}

// The length of the UTF-8 sequence at the start of `bytes`, and the character; 0 when there is none.
// Source: The Unicode Standard, table 3-7, "Well-Formed UTF-8 Byte Sequences".
std::size_t decode(std::string_view bytes, std::uint32_t& character) {
    const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(bytes[at]); };
    const unsigned int lead = byte(0);
    if (lead < 0x80) {
        character = lead;
        return 1;
    }
    const std::size_t length = lead >= 0xc2 && lead < 0xe0   ? 2
                               : lead >= 0xe0 && lead < 0xf0 ? 3
                               : lead >= 0xf0 && lead < 0xf5 ? 4
                                                             : 0;
    if (length == 0 || bytes.size() < length) {
        return 0;
    }
    character = lead & (0xffU >> (length + 1));
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xc0U) != 0x80) {
            return 0;
        }
        character = character << 6U | (byte(i) & 0x3fU);
    }
    const bool is_too_long = character < (length == 3 ? 0x800U : length == 4 ? 0x10000U : 0x80U);
    const bool is_no_character = character > 0x10ffff || (character >= 0xd800 && character < 0xe000);
    return is_too_long || is_no_character ? 0 : length;
}

// Whether a character would do more than stand there: controls, line ends, and what turns the direction of writing.
bool is_active(std::uint32_t character) {
    return character < 0x20 || (character >= 0x7f && character < 0xa0) || character == 0x061c ||
           (character >= 0x200e && character <= 0x200f) || (character >= 0x2028 && character <= 0x202e) ||
           (character >= 0x2066 && character <= 0x2069) || character == 0xfeff;
}

} // namespace

std::string grouped(double whole) {
    std::string digits = formatted("%.0f", std::abs(whole));
    for (std::size_t i = digits.size(); i > 3; i -= 3) {
        digits.insert(i - 3, ",");
    }
    return (whole < 0 ? "-" : "") + digits;
}

std::string grouped(std::uint64_t whole) {
    std::string digits = std::to_string(whole);
    for (std::size_t i = digits.size(); i > 3; i -= 3) {
        digits.insert(i - 3, ",");
    }
    return digits;
}

std::string format_percent(double percent) {
    const double shown = percent < 100 && percent > 99.9 ? 99.9 : percent;
    return formatted("%.1f %%", shown);
}

std::string format_figure(const std::optional<double>& value, const std::string& unit) {
    if (!value.has_value()) {
        return "-";
    }
    if (unit == "%") {
        return format_percent(*value);
    }
    return std::floor(*value) == *value || std::abs(*value) >= 1000 ? grouped(std::round(*value))
                                                                    : formatted("%.1f", *value);
}

std::string counted(std::uint64_t count, const std::string& what) {
    return grouped(count) + " " + what + (count == 1 ? "" : "s");
}

std::string printable(std::string_view bytes) {
    std::string text;
    while (!bytes.empty()) {
        std::uint32_t character = 0;
        const std::size_t length = decode(bytes, character);
        const std::size_t taken = std::max<std::size_t>(length, 1);
        if (length != 0 && !is_active(character)) {
            text += bytes.substr(0, taken);
        } else {
            for (const char byte : bytes.substr(0, taken)) {
                char escape[8];
                std::snprintf(escape, sizeof escape, "\\x%02x",
                              static_cast<unsigned int>(static_cast<unsigned char>(byte)));
                text += escape;
            }
        }
        bytes.remove_prefix(taken);
    }
    return text;
}

std::string readable_name(std::string_view name) {
    return printable(demangled(name));
}

std::string shortened(const std::string& text, std::size_t most) {
    std::size_t characters = 0;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const bool is_start = (static_cast<unsigned char>(text[at]) & 0xc0U) != 0x80;
        characters += is_start ? 1 : 0;
        if (is_start && characters > most) {
            return text.substr(0, at) + "...";
        }
    }
    return text;
}

std::string html_text(std::string_view text) {
    std::string result;
    for (const char character : text) {
        switch (character) {
        case '<':
            result += "&lt;";
            break;
        case '>':
            result += "&gt;";
            break;
        case '&':
            result += "&amp;";
            break;
        case '"':
            result += "&quot;";
            break;
        case '\'':
            result += "&#39;";
            break;
        default:
            result += character;
        }
    }
    return result;
}

std::string name_html(std::string_view name, std::size_t most) {
    const std::string text = readable_name(name);
    for (std::size_t characters = most; characters > 4; characters = characters * 2 / 3) {
        std::string html = html_text(shortened(text, characters));
        if (html.size() <= most) {
            return html;
        }
    }
    return html_text(shortened(text, 4));
}

std::string markdown_text(std::string_view text) {
    constexpr std::string_view markup = "\\`*{}[]<>()#+!|~&@$^=";
    const auto is_word = [&](std::size_t at) {
        return at < text.size() && std::isalnum(static_cast<unsigned char>(text[at])) != 0;
    };
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool is_emphasis = text[i] == '_' && !(i > 0 && is_word(i - 1) && is_word(i + 1)); // not inside a word
        if (is_emphasis || markup.find(text[i]) != std::string_view::npos) {
            result += '\\';
        }
        result += text[i];
    }
    return result;
}
