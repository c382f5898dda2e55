#include "app/desktop/NumberingText.h"

#include <vector>

#include "core/UniqueId.h"
#include "lifecycle/TokenFields.h"

namespace brassline::desktop {

namespace {

constexpr std::string_view kPrefix = "ZP";

std::string settingsName(std::string_view kind) {
    return std::string(kind) + "numbers";
}

}  // namespace

std::vector<std::pair<std::string, std::string>> offeredTokens(std::string_view kind) {
    std::vector<std::pair<std::string, std::string>> tokens;
    const std::string settings = settingsName(kind);
    for (const std::string& tag : tokenFieldTags(kind)) {
        for (const std::string& option : tokenOptions(settings, tag)) {
            if (option != "-") {
                tokens.emplace_back(option, tag);
            }
        }
    }
    // A client's numbers have no field of tags of their own: the counter is all they offer.
    if (tokens.empty()) {
        for (const std::string& option : tokenOptions(settings, "increment")) {
            tokens.emplace_back(option, "increment");
        }
    }
    return tokens;
}

std::string patternText(const NumberPattern& pattern) {
    std::string text;
    for (const PatternElement& element : pattern) {
        if (!element.isToken) {
            text += element.text;
            continue;
        }
        std::string option = element.option.value_or(element.field);
        if (option.rfind(kPrefix, 0) == 0) {
            option.erase(0, kPrefix.size());
        }
        text += "{" + option + "}";
    }
    return text;
}

std::optional<NumberPattern> parsePatternText(std::string_view text, std::string_view kind, std::string* error) {
    const std::vector<std::pair<std::string, std::string>> offered = offeredTokens(kind);
    NumberPattern pattern;
    std::string literal;
    auto flush = [&] {
        if (!literal.empty()) {
            pattern.push_back(PatternElement::literal(literal));
            literal.clear();
        }
    };
    for (size_t at = 0; at < text.size(); ++at) {
        const char c = text[at];
        if (c == '}') {
            if (error != nullptr) {
                *error = "a \"}\" closes no token";
            }
            return std::nullopt;
        }
        if (c != '{') {
            literal.push_back(c);
            continue;
        }
        const size_t close = text.find('}', at);
        if (close == std::string_view::npos) {
            if (error != nullptr) {
                *error = "a token is not closed with \"}\"";
            }
            return std::nullopt;
        }
        const std::string name(text.substr(at + 1, close - at - 1));
        const std::string option = std::string(kPrefix) + name;
        const std::pair<std::string, std::string>* found = nullptr;
        for (const auto& token : offered) {
            if (token.first == option) {
                found = &token;
                break;
            }
        }
        if (found == nullptr) {
            if (error != nullptr) {
                *error = "{" + name + "} is not a token of these numbers";
            }
            return std::nullopt;
        }
        flush();
        PatternElement token = PatternElement::token(found->second, found->first);
        token.uid = uniqueBase64String();
        pattern.push_back(std::move(token));
        at = close;
    }
    flush();
    return pattern;
}

}  // namespace brassline::desktop
