#include "lifecycle/TokenFields.h"

#include <algorithm>
#include <map>

#include "core/UniqueId.h"

namespace brassline {

namespace {

using OptionLists = std::map<std::string, std::vector<std::string>, std::less<>>;

std::vector<std::string> counters(const std::string& base, bool twoDigits) {
    std::vector<std::string> names = {base};
    for (int width = twoDigits ? 2 : 3; width <= 5; ++width) {
        names.push_back(base + std::to_string(width));
    }
    return names;
}

const OptionLists& invoiceLists() {
    static const OptionLists lists = {
        {"year", {"ZPYear", "ZPShortYear"}},
        {"month", {"ZPMonth", "ZPMonthAbbreviation"}},
        {"week", {"ZPWeek"}},
        {"day", {"ZPDay", "-", "ZPShortDayName", "ZPDayName"}},
        {"increment", counters("ZPIncrement", true)},
        {"autoincrement", counters("ZPAutoIncrement", true)},
        {"clientid", {"ZPClientID"}},
        {"client", {"ZPClientName", "ZPFullClientName"}},
        {"reference", {"ZPReference"}},
        {"project", {"ZPProject"}},
        {"layout", {"ZPLayoutName"}},
    };
    return lists;
}

const std::map<std::string, OptionLists, std::less<>>& allLists() {
    static const std::map<std::string, OptionLists, std::less<>> lists = [] {
        std::map<std::string, OptionLists, std::less<>> made;
        made["invoicenumbers"] = invoiceLists();
        OptionLists estimate = invoiceLists();
        estimate["increment"] = counters("ZPEstimateIncrement", true);
        made["estimatenumbers"] = estimate;
        made["clientnumbers"] = {{"increment", counters("ZPClientIncrement", false)}};
        made["projectnumbers"] = {{"increment", counters("ZPProjectIncrement", false)},
                                  {"autoincrement", counters("ZPAutoIncrement", true)},
                                  {"clientid", {"ZPClientID"}},
                                  {"client", {"ZPClientName", "ZPFullClientName"}}};
        std::vector<std::string> discounts = {
            "ZPCashDiscount1",       "ZPCashDiscount2",       "ZPCashDiscount3",
            "ZPCashDiscount4",       "ZPCashDiscount5",       "-",
            "ZPCustomCashDiscount1", "ZPCustomCashDiscount2", "ZPCustomCashDiscount3"};
        std::vector<std::string> amounts = {"ZPAmount",
                                            "ZPAmount1",
                                            "ZPAmount2",
                                            "ZPAmount3",
                                            "ZPAmount4",
                                            "ZPAmount5",
                                            "-",
                                            "ZPCustomCashDiscountAmount1",
                                            "ZPCustomCashDiscountAmount2",
                                            "ZPCustomCashDiscountAmount3"};
        made["conditions"] = {
            {"due",
             {"ZPCashDiscountDate", "-", "ZPCashDiscountDate3", "ZPCashDiscountDate5", "ZPCashDiscountDate7",
              "ZPCashDiscountDate10", "ZPCashDiscountDate14", "-", "ZPCashDiscountDateInBetween"}},
            {"amount", amounts},
            {"amountdue", discounts},
            {"currency", {"ZPCurrency", "ZPCurrencyShortName", "ZPCurrencySymbol"}},
        };
        return made;
    }();
    return lists;
}

bool isCounterTag(std::string_view field) {
    return field == "increment";
}

}  // namespace

std::vector<std::string> tokenOptions(std::string_view settingsName, std::string_view tag, std::string_view prefsKey) {
    if (!prefsKey.empty() && prefsKey.starts_with("followUpType.")) {
        // A follow-up type counts on its own counter in each of the five widths.
        if (tag == "increment") {
            std::vector<std::string> names;
            for (const std::string& name : counters("ZPIncrement", true)) {
                names.push_back(name + "." + std::string(prefsKey));
            }
            return names;
        }
        settingsName = "invoicenumbers";
    }
    const auto& lists = allLists();
    auto list = lists.find(settingsName);
    if (list == lists.end()) {
        return {};
    }
    auto options = list->second.find(tag);
    return options == list->second.end() ? std::vector<std::string>{} : options->second;
}

std::vector<std::string> tokenFieldTags(std::string_view field) {
    if (field == "invoice" || field == "estimate") {
        return {"year", "month", "week", "day", "increment", "clientid", "reference", "project", "autoincrement"};
    }
    if (field == "client") {
        return {"increment"};
    }
    if (field == "project") {
        return {"client", "clientid", "increment", "autoincrement"};
    }
    if (field == "path") {
        return {"number", "amount", "currency", "amountdue", "client", "project", "reference", "subject",
                "label",  "layout", "clientid", "year",      "month",  "day",     "/"};
    }
    return {};
}

bool addTokens(NumberPattern& field, NumberPattern added, size_t index) {
    bool addsCounter = false;
    bool addsAuto = false;
    for (PatternElement& element : added) {
        if (!element.isToken) {
            continue;
        }
        addsCounter = addsCounter || isCounterTag(element.field);
        addsAuto = addsAuto || element.field == "autoincrement";
        if (element.uid.empty()) {
            element.uid = uniqueBase64String();
        }
    }
    if (addsCounter && addsAuto) {
        return false;
    }
    index = std::min(index, field.size());
    field.insert(field.begin() + static_cast<std::ptrdiff_t>(index), added.begin(), added.end());
    // The other kind goes after the add, so `index` counts in the field as it was.
    if (addsCounter || addsAuto) {
        const char* excluded = addsCounter ? "autoincrement" : "increment";
        std::erase_if(
            field, [excluded](const PatternElement& element) { return element.isToken && element.field == excluded; });
    }
    return true;
}

bool hasNoIncrement(const NumberPattern& pattern) {
    return !patternHasField(pattern, "increment");
}

}  // namespace brassline
