#include "model/entities/BLContact.h"

#include <unordered_set>
#include <vector>

#include "core/BLLocales.h"
#include "core/BLParser.h"
#include "core/Localization.h"
#include "model/ManagedObjectContext.h"
#include "model/entities/BLPreference.h"
#include "model/entities/BLProfile.h"
#include "model/entities/ContactStrings.h"
#include "model/entities/ModelHooks.h"

namespace brassline {

namespace {

constexpr std::string_view kNbsp = "\u00A0";

std::string text(const std::optional<std::string>& value) {
    return value.value_or(std::string());
}

bool sortsByLastName() {
    return userDefaultIsOn(kSortNamesLastNameDefault);
}

std::string replaceAll(std::string value, std::string_view from, std::string_view to) {
    for (size_t at = value.find(from); at != std::string::npos; at = value.find(from, at + to.size())) {
        value.replace(at, from.size(), to);
    }
    return value;
}

bool isNewline(char c) {
    return c == '\n' || c == '\r';
}

std::string trimNewlines(const std::string& value) {
    size_t begin = 0;
    size_t end = value.size();
    while (begin < end && isNewline(value[begin])) {
        ++begin;
    }
    while (end > begin && isNewline(value[end - 1])) {
        --end;
    }
    return value.substr(begin, end - begin);
}

// Blanks, tabs, newlines and non-breaking spaces at both ends.
std::string trimWhitespace(std::string_view value) {
    auto blankAt = [&](size_t at, bool fromEnd) -> size_t {
        if (fromEnd) {
            if (at >= 2 && value.substr(at - 2, 2) == kNbsp) {
                return 2;
            }
            const char c = value[at - 1];
            return c == ' ' || c == '\t' || isNewline(c) ? 1 : 0;
        }
        if (value.substr(at, 2) == kNbsp) {
            return 2;
        }
        const char c = value[at];
        return c == ' ' || c == '\t' || isNewline(c) ? 1 : 0;
    };
    size_t begin = 0;
    size_t end = value.size();
    while (begin < end) {
        const size_t width = blankAt(begin, false);
        if (width == 0) {
            break;
        }
        begin += width;
    }
    while (end > begin) {
        const size_t width = blankAt(end, true);
        if (width == 0) {
            break;
        }
        end -= width;
    }
    return std::string(value.substr(begin, end - begin));
}

std::vector<std::string> lines(const std::string& value) {
    std::vector<std::string> out;
    size_t start = 0;
    while (start <= value.size()) {
        const size_t end = value.find('\n', start);
        out.push_back(value.substr(start, end == std::string::npos ? std::string::npos : end - start));
        if (end == std::string::npos) {
            break;
        }
        start = end + 1;
    }
    return out;
}

std::optional<std::string> upper(const std::optional<std::string>& code) {
    if (!code) {
        return std::nullopt;
    }
    return uppercaseText(*code);
}

std::string dictionaryText(const Value::Dictionary& dictionary, const char* key) {
    auto found = dictionary.find(key);
    if (found == dictionary.end() || found->second.isNull()) {
        return {};
    }
    return found->second.toString();
}

ContactCard cardFromDictionary(const Value::Dictionary& dictionary) {
    ContactCard card;
    card.organization = dictionaryText(dictionary, "Organization");
    card.department = dictionaryText(dictionary, "Department");
    card.title = dictionaryText(dictionary, "Title");
    card.firstName = dictionaryText(dictionary, "FirstName");
    card.middleName = dictionaryText(dictionary, "MiddleName");
    card.lastName = dictionaryText(dictionary, "LastName");
    card.street = dictionaryText(dictionary, "Street");
    card.zip = dictionaryText(dictionary, "ZIP");
    card.city = dictionaryText(dictionary, "City");
    card.state = dictionaryText(dictionary, "State");
    std::string code = dictionaryText(dictionary, "CountryCode");
    if (!code.empty()) {
        card.countryCode = code;
        const std::string upperCode = uppercaseText(code);
        std::optional<std::string> locale = BLLocales::sharedLocales().countryNameLocale(upperCode);
        std::optional<std::string> name = countryDisplayName(upperCode, locale.value_or(std::string()));
        card.countryNameForAddress = name.value_or(std::string());
    }
    return card;
}

bool isGB(const std::optional<std::string>& code) {
    return code && uppercaseText(*code) == "GB";
}

// Derived getters are plain function pointers, so each text getter gets its own instance.
template <std::string (BLContact::*Getter)() const>
Value textGetter(const ManagedObject& object) {
    return Value((static_cast<const BLContact&>(object).*Getter)());
}

}  // namespace

void BLContact::setupClass(EntityDescription& entity) {
    auto textProperty = [&entity](const char* key, DerivedGetter getter) {
        entity.registerDerivedProperty(key, getter);
    };
    textProperty("displayNameFirst", &textGetter<&BLContact::displayNameFirst>);
    textProperty("contactName", &textGetter<&BLContact::contactName>);
    textProperty("fileName", &textGetter<&BLContact::fileName>);
    entity.registerDerivedProperty("titleAndNameInOneLine", [](const ManagedObject& object) -> Value {
        return Value(static_cast<const BLContact&>(object).titleAndNameInOneLine());
    });
    textProperty("displayNameLast", &textGetter<&BLContact::displayNameLast>);
    textProperty("shortContactName", &textGetter<&BLContact::shortContactName>);
    textProperty("shortDisplayName", &textGetter<&BLContact::shortDisplayName>);
    textProperty("formattedName", &textGetter<&BLContact::formattedName>);
    textProperty("formattedNameForAddress", &textGetter<&BLContact::formattedNameForAddress>);
    textProperty("organizationOrName", &textGetter<&BLContact::organizationOrName>);
    textProperty("postalAddress", &textGetter<&BLContact::postalAddress>);
    textProperty("formattedAddress", &textGetter<&BLContact::formattedAddress>);
    textProperty("countryName", &textGetter<&BLContact::countryName>);
    textProperty("countryNameForAddress", &textGetter<&BLContact::countryNameForAddress>);
    textProperty("vCardString", &textGetter<&BLContact::vCardString>);
    entity.registerDerivedProperty("singleLinePostalAddress", [](const ManagedObject& object) -> Value {
        std::optional<std::string> line = static_cast<const BLContact&>(object).singleLinePostalAddress();
        return line ? Value(*line) : Value();
    });
    entity.registerDerivedProperty("effectiveRate", [](const ManagedObject& object) -> Value {
        std::optional<Decimal> rate = static_cast<const BLContact&>(object).effectiveRate();
        return rate ? Value(*rate) : Value();
    });
    entity.registerDerivedProperty("paymentBehaviorAsNumber", [](const ManagedObject& object) -> Value {
        std::optional<int64_t> number = static_cast<const BLContact&>(object).paymentBehaviorAsNumber();
        return number ? Value(*number) : Value();
    });
}

// Names.

std::string BLContact::displayName() const {
    std::string name = sortsByLastName() ? displayNameLast() : displayNameFirst();
    name = replaceAll(std::move(name), "\r\n", " ");
    for (char& c : name) {
        if (isNewline(c)) {
            c = ' ';
        }
    }
    if (isArchived()) {
        return name + " (" + localizedString(kArchivedText) + ")";
    }
    return name;
}

namespace {

// "Organization, Leading Trailing", or the placeholder text when all three are empty.
std::string organizationAndName(std::string name, const std::string& leading, const std::string& trailing) {
    if (!leading.empty() || !trailing.empty()) {
        if (!name.empty()) {
            name += ", ";
        }
        if (!leading.empty()) {
            name += leading + " ";
        }
        name += trailing;
    }
    return name.empty() ? localizedString(kNewClientText) : name;
}

}  // namespace

std::string BLContact::displayNameFirst() const {
    return organizationAndName(text(organization()), text(firstName()), text(lastName()));
}

std::string BLContact::displayNameLast() const {
    return organizationAndName(text(organization()), text(lastName()), text(firstName()));
}

std::string BLContact::shortContactName() const {
    std::string leading = text(firstName());
    std::string trailing = text(lastName());
    if (sortsByLastName()) {
        std::swap(leading, trailing);
    }
    std::string name = leading;
    if (!leading.empty() && !trailing.empty()) {
        name += " ";
    }
    name += trailing;
    const std::string department = text(this->department());
    if (!department.empty()) {
        name = name.empty() ? department : name + " (" + department + ")";
    }
    return name.empty() ? text(email()) : name;
}

std::string BLContact::shortDisplayName() const {
    const std::string first = text(firstName());
    const std::string last = text(lastName());
    if (!first.empty() || !last.empty()) {
        return first.empty() || last.empty() ? first + last : first + " " + last;
    }
    const std::string organization = text(this->organization());
    return organization.empty() ? localizedString(kNewContactText) : organization;
}

std::string BLContact::formattedName() const {
    std::string name;
    for (const std::optional<std::string>& part : {title(), firstName(), middleName(), lastName()}) {
        if (part && !part->empty()) {
            name += name.empty() ? *part : " " + *part;
        }
    }
    return name;
}

std::string BLContact::organizationOrName() const {
    const std::string organization = text(this->organization());
    return organization.empty() ? formattedName() : organization;
}

bool BLContact::titleAndNameInOneLine() const {
    return isGB(countryCode());
}

std::string BLContact::formattedNameForAddress() const {
    return brassline::formattedNameForAddress(card(), titleAndNameInOneLine());
}

std::string formattedNameForAddress(const ContactCard& card, bool titleAndNameInOneLine) {
    if (card.title.empty() && card.firstName.empty() && card.middleName.empty() && card.lastName.empty()) {
        return {};
    }
    std::string name = card.title;
    const bool hasNames = !card.firstName.empty() || !card.middleName.empty() || !card.lastName.empty();
    if (!card.title.empty() && hasNames) {
        // A private person's title stands on a line of its own; beside an organization
        // (or in British usage) it shares the name's line.
        const bool oneLine = !card.organization.empty() || !card.department.empty() || titleAndNameInOneLine;
        name += oneLine ? std::string(kNbsp) : std::string("\n");
    }
    if (!card.firstName.empty()) {
        name += card.firstName + std::string(kNbsp);
    }
    if (!card.middleName.empty()) {
        name += card.middleName + std::string(kNbsp);
    }
    name += card.lastName;
    return stringByReplacingSpacesWithNbsp(name);
}

// Addresses.

ContactCard BLContact::card() const {
    ContactCard card;
    card.title = text(title());
    card.firstName = text(firstName());
    card.middleName = text(middleName());
    card.lastName = text(lastName());
    card.organization = text(organization());
    card.department = text(department());
    card.street = text(address());
    card.zip = text(zip());
    card.city = text(city());
    card.state = text(state());
    card.countryCode = countryCode();
    // A contact without a country is addressed by the current locale's template, so its
    // country line names that country too.
    card.countryNameForAddress = card.countryCode
                                     ? countryNameForAddress()
                                     : countryDisplayName(currentLocaleCountryCode()).value_or(std::string());
    return card;
}

std::string postalAddress(const ContactCard& card, const std::optional<std::string>& senderCountryCode) {
    const std::string recipient = card.countryCode ? uppercaseText(*card.countryCode) : currentLocaleCountryCode();
    const std::optional<std::string> sender = upper(senderCountryCode);
    const BLLocales& locales = BLLocales::sharedLocales();
    const std::string* format = sender ? locales.addressFormat(*sender + "-" + recipient) : nullptr;
    if (format == nullptr) {
        format = locales.addressFormat(recipient);
    }
    if (format == nullptr) {
        format = locales.addressFormat(kFallbackAddressFormatKey);
    }
    std::string address = stringByReplacingSpacesWithNbsp(format != nullptr ? *format : std::string());
    address = replaceAll(std::move(address), "<Street/>", card.street);
    address = replaceAll(std::move(address), "<ZIP/>", card.zip);
    address = replaceAll(std::move(address), "<City/>", card.city);
    address = replaceAll(std::move(address), "<State/>", card.state);
    address = trimNewlines(address);
    // Compared as stored: a contact without a code differs from any sender that has one,
    // so it gets a country line even though its template is the current locale's.
    if (senderCountryCode != card.countryCode) {
        address += "\n" + uppercaseText(card.countryNameForAddress);
    }
    std::string joined;
    for (const std::string& line : lines(address)) {
        // A line whose fields were all empty keeps only the template's separators.
        if (trimWhitespace(line).empty()) {
            continue;
        }
        joined += joined.empty() ? line : "\n" + line;
    }
    return stringByReplacingSpacesWithNbsp(joined);
}

std::string formattedAddress(const ContactCard& card, bool titleAndNameInOneLine,
                             const std::optional<std::string>& senderCountryCode) {
    std::string recipient;
    if (!card.organization.empty()) {
        recipient += stringByReplacingSpacesWithNbsp(card.organization) + "\n";
    }
    if (!card.department.empty()) {
        recipient += card.department + "\n";
    }
    const std::string name = formattedNameForAddress(card, titleAndNameInOneLine);
    if (!name.empty()) {
        recipient += name + "\n";
    }
    const std::string postal = postalAddress(card, senderCountryCode);
    if (postal.find(kRecipientTag) != std::string::npos) {
        return replaceAll(postal, kRecipientTag, trimWhitespace(recipient));
    }
    if (postal.empty()) {
        return trimNewlines(recipient);
    }
    return recipient + postal;
}

std::string BLContact::postalAddress() const {
    BLProfile* profile = sender();
    return brassline::postalAddress(card(), profile != nullptr ? profile->countryCode() : std::nullopt);
}

std::string BLContact::formattedAddress() const {
    BLProfile* profile = sender();
    return brassline::formattedAddress(card(), titleAndNameInOneLine(),
                                       profile != nullptr ? profile->countryCode() : std::nullopt);
}

std::optional<std::string> BLContact::singleLinePostalAddress() const {
    std::string line;
    for (const std::string& part : lines(postalAddress())) {
        // A template that places the recipient has nothing to say on one line.
        if (part == kRecipientTag) {
            continue;
        }
        line += line.empty() ? part : ", " + part;
    }
    line = stringByReplacingNbspWithSpaces(line);
    line = replaceAll(std::move(line), "\u200E", "");
    line = trimWhitespace(line);
    if (line.empty()) {
        return std::nullopt;
    }
    return line;
}

std::string BLContact::extendAddressIfPossible(std::string_view address) const {
    std::optional<std::string> line = singleLinePostalAddress();
    if (line && asciiLowercase(*line).find(asciiLowercase(address)) != std::string::npos) {
        return *line;
    }
    return std::string(address);
}

std::string BLContact::countryName() const {
    std::optional<std::string> code = countryCode();
    if (!code) {
        return {};
    }
    return countryDisplayName(uppercaseText(*code)).value_or(std::string());
}

std::string BLContact::countryNameForAddress() const {
    std::optional<std::string> code = countryCode();
    if (code) {
        const std::string upperCode = uppercaseText(*code);
        if (std::optional<std::string> locale = BLLocales::sharedLocales().countryNameLocale(upperCode)) {
            if (std::optional<std::string> name = countryDisplayName(upperCode, *locale)) {
                return *name;
            }
        }
    }
    return countryName();
}

std::string BLContact::formattedAddressForDictionary(const Value::Dictionary& dictionary,
                                                     const std::optional<std::string>& senderCountryCode) {
    const ContactCard card = cardFromDictionary(dictionary);
    std::string recipient;
    if (!card.organization.empty()) {
        recipient += stringByReplacingSpacesWithNbsp(card.organization) + "\n";
    }
    if (!card.department.empty()) {
        recipient += card.department + "\n";
    }
    const std::string name = brassline::formattedNameForAddress(card, isGB(card.countryCode));
    if (!name.empty()) {
        recipient += name + "\n";
    }
    // No "<Recipient/>" step here: a dictionary's address always follows its name block.
    const std::string postal = brassline::postalAddress(card, senderCountryCode);
    return postal.empty() ? trimNewlines(recipient) : recipient + postal;
}

std::string BLContact::formattedNameForAddressForDictionary(const Value::Dictionary& dictionary) {
    const ContactCard card = cardFromDictionary(dictionary);
    return brassline::formattedNameForAddress(card, isGB(card.countryCode));
}

std::string BLContact::postalAddressForDictionary(const Value::Dictionary& dictionary,
                                                  const std::optional<std::string>& senderCountryCode) {
    return brassline::postalAddress(cardFromDictionary(dictionary), senderCountryCode);
}

std::string BLContact::formattedCompanyAddress() const {
    const ContactCard own = card();
    if (own.organization.empty()) {
        return formattedAddress();
    }
    // Without the names the builder prints only organization, department and address.
    ContactCard company = own;
    company.title.clear();
    company.firstName.clear();
    company.middleName.clear();
    company.lastName.clear();
    BLProfile* profile = sender();
    return brassline::formattedAddress(company, titleAndNameInOneLine(),
                                       profile != nullptr ? profile->countryCode() : std::nullopt);
}

std::string BLContact::formattedHTMLAddress() const {
    std::string html;
    const std::string address = formattedAddress();
    for (size_t at = 0; at < address.size(); ++at) {
        const char c = address[at];
        if (address.compare(at, kNbsp.size(), kNbsp) == 0) {
            html += "&nbsp;";
            at += kNbsp.size() - 1;
            continue;
        }
        switch (c) {
            case '&':
                html += "&amp;";
                break;
            case '<':
                html += "&lt;";
                break;
            case '>':
                html += "&gt;";
                break;
            case '"':
                html += "&quot;";
                break;
            case '\n':
                html += "<br>";
                break;
            default:
                html.push_back(c);
        }
    }
    return html;
}

std::string BLContact::labelAddressForContact(const BLContact* contact) const {
    const BLContact* person = contact != nullptr ? contact : this;
    ContactCard label = card();
    const ContactCard named = person->card();
    label.title = named.title;
    label.firstName = named.firstName;
    label.middleName = named.middleName;
    label.lastName = named.lastName;
    // The person's own address does not count here: the label goes to this address.
    BLProfile* profile = sender();
    const std::string address = brassline::formattedAddress(label, titleAndNameInOneLine(),
                                                            profile != nullptr ? profile->countryCode() : std::nullopt);
    // Label sheets wrap by their own box width, so the blanks need not hold lines together.
    return stringByReplacingNbspWithSpaces(address);
}

Value::Dictionary BLContact::ABDictionary() const {
    Value::Dictionary record;
    auto put = [&record](const char* key, const std::optional<std::string>& value) {
        if (value && !value->empty()) {
            record.emplace(key, Value(*value));
        }
    };
    put("Organization", organization());
    put("Department", department());
    put("Title", title());
    put("FirstName", firstName());
    put("MiddleName", middleName());
    put("LastName", lastName());
    put("Street", address());
    put("ZIP", zip());
    put("City", city());
    put("State", state());
    put("CountryCode", countryCode());
    put("Email", email());
    put("Phone", phoneNumber());
    put("Note", notes());
    return record;
}

// vCard.

std::string BLContact::vCardValue(const std::optional<std::string>& value) {
    return replaceAll(text(value), "\n", "\\n");
}

std::string BLContact::vCardString() const {
    std::optional<std::string> code = countryCode();
    std::string lowerCode;
    if (code) {
        for (char c : *code) {
            lowerCode.push_back(static_cast<char>(std::tolower(static_cast<unsigned char>(c))));
        }
    }
    const std::vector<std::string> fields = {
        "BEGIN:VCARD",
        "VERSION:3.0",
        "PRODID:" + std::string(kVCardProductID),
        "N:" + vCardValue(lastName()) + ";" + vCardValue(firstName()),
        "FN:" + vCardValue(firstName()) + " " + vCardValue(lastName()),
        "ORG:" + vCardValue(organization()),
        "EMAIL;type=INTERNET;type=WORK;type=pref:" + vCardValue(email()),
        // The type words are those of the e-mail line, not a voice type: readers of these
        // cards expect them so.
        "TEL;type=INTERNET;type=WORK;type=pref:" + vCardValue(phoneNumber()),
        "item1.ADR;type=WORK;type=pref:;;" + vCardValue(address()) + ";" + vCardValue(city()) + ";;" +
            vCardValue(zip()) + ";" + vCardValue(countryName()),
        "item1.X-ABADR:" + vCardValue(code ? std::optional<std::string>(lowerCode) : std::nullopt),
        "NOTE:" + vCardValue(notes()),
        "END:VCARD",
    };
    std::string card;
    for (const std::string& line : fields) {
        card += card.empty() ? line : "\n" + line;
    }
    return card;
}

// Inherited values.

std::optional<int16_t> BLContact::payInterval() const {
    // A sub-contact bills on its top contact's terms, however deep it sits.
    const BLContainer* top = this;
    std::unordered_set<const BLContainer*> visited{top};
    while (top->parent() != nullptr && visited.insert(top->parent()).second) {
        top = top->parent();
    }
    if (const auto* document = dynamic_cast<const BLDocument*>(top)) {
        return document->gen::BLDocument::payInterval();
    }
    return std::nullopt;
}

std::optional<Decimal> BLContact::effectiveRate() const {
    if (std::optional<Decimal> own = rate()) {
        return own;
    }
    ManagedObjectContext* context = managedObjectContext();
    if (context == nullptr) {
        return std::nullopt;
    }
    Value fallback = BLPreference::preferenceValue(*context, kPrefTimeImporterDefaultRate);
    if (fallback.isNull()) {
        return std::nullopt;
    }
    return fallback.toDecimal();
}

std::optional<int64_t> BLContact::paymentBehaviorAsNumber() const {
    std::vector<BLDocument*> invoices = collectDocumentsWithEntityName("Invoice");
    if (invoices.empty()) {
        return std::nullopt;
    }
    Decimal sum;
    for (const BLDocument* invoice : invoices) {
        sum = sum + invoice->valueForKey(kPaymentBehaviorKey).toDecimal();
    }
    return (sum / Decimal(static_cast<int64_t>(invoices.size()))).toInt64();
}

}  // namespace brassline
