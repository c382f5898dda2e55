#include "core/BLLocales.h"

#include <filesystem>
#include <fstream>
#include <sstream>

#include <nlohmann/json.hpp>
#include <unicode/locid.h>
#include <unicode/unistr.h>

#include "core/Localization.h"
#include "core/Log.h"

namespace brassline {

const BLLocales& BLLocales::sharedLocales() {
    static const BLLocales locales = [] {
        const std::string path =
            (std::filesystem::path(localizationResourcesDirectory()) / "AddressFormats.json").string();
        std::optional<BLLocales> loaded = loadFromFile(path);
        return loaded ? std::move(*loaded) : BLLocales();
    }();
    return locales;
}

std::optional<BLLocales> BLLocales::loadFromFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        logMessage("Address formats %@ cannot be read", path);
        return std::nullopt;
    }
    std::ostringstream text;
    text << file.rdbuf();
    std::optional<BLLocales> locales = loadFromJSON(text.str());
    if (!locales) {
        logMessage("Address formats %@ are not in the expected form", path);
    }
    return locales;
}

std::optional<BLLocales> BLLocales::loadFromJSON(std::string_view text) {
    // nlohmann reports failure by exception; this is its one seam here.
    nlohmann::json document = nlohmann::json::parse(text, nullptr, /*allow_exceptions=*/false);
    if (!document.is_object()) {
        return std::nullopt;
    }
    auto formats = document.find("addressFormats");
    if (formats == document.end() || !formats->is_object()) {
        return std::nullopt;
    }
    BLLocales locales;
    for (auto it = formats->begin(); it != formats->end(); ++it) {
        if (it.value().is_string()) {
            locales.m_formats.emplace(it.key(), it.value().get<std::string>());
        }
    }
    auto countries = document.find("countries");
    if (countries != document.end() && countries->is_object()) {
        for (auto it = countries->begin(); it != countries->end(); ++it) {
            if (!it.value().is_object()) {
                continue;
            }
            auto locale = it.value().find("countryNameLocale");
            if (locale != it.value().end() && locale->is_string()) {
                locales.m_countryNameLocales.emplace(it.key(), locale->get<std::string>());
            }
        }
    }
    return locales;
}

const std::string* BLLocales::addressFormat(std::string_view key) const {
    auto found = m_formats.find(key);
    return found != m_formats.end() ? &found->second : nullptr;
}

std::optional<std::string> BLLocales::countryNameLocale(std::string_view countryCode) const {
    auto found = m_countryNameLocales.find(countryCode);
    if (found == m_countryNameLocales.end()) {
        return std::nullopt;
    }
    return found->second;
}

std::string currentLocaleCountryCode() {
    return icu::Locale::getDefault().getCountry();
}

std::optional<std::string> countryDisplayName(std::string_view countryCode, std::string_view localeID) {
    if (countryCode.empty()) {
        return std::nullopt;
    }
    const std::string code(countryCode);
    const icu::Locale region("", code.c_str());
    const icu::Locale language =
        localeID.empty() ? icu::Locale::getDefault() : icu::Locale(std::string(localeID).c_str());
    icu::UnicodeString name;
    region.getDisplayCountry(language, name);
    std::string out;
    name.toUTF8String(out);
    // ICU answers the code itself for a region it does not know.
    if (out.empty() || out == code) {
        return std::nullopt;
    }
    return out;
}

}  // namespace brassline
