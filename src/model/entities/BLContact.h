#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "core/Value.h"
#include "model/entities/gen/BLContact.h"

namespace brassline {

// The parts of a name-and-address card, from a contact or from a dictionary, that the
// name and address builders read. Absent fields are empty.
struct ContactCard {
    std::string title;
    std::string firstName;
    std::string middleName;
    std::string lastName;
    std::string organization;
    std::string department;
    std::string street;
    std::string zip;
    std::string city;
    std::string state;
    // As stored: the comparison with the sender's country is on this, not upper-cased.
    std::optional<std::string> countryCode;
    // The country line's text when one is printed.
    std::string countryNameForAddress;
};

// The name and address card that clients, the firm's profile and team members share:
// display names, the name and address printed on documents, the vCard text and values
// a contact inherits from its parent. Main thread, like its context.
class BLContact : public gen::BLContact {
public:
    static void setupClass(EntityDescription& entity);

    // Names. displayName follows the user default "sortNamesLastName" and marks an
    // archived contact; the builders fall back to the translated "new client"/"new contact".
    std::string displayName() const override;
    std::string displayNameFirst() const;
    std::string displayNameLast() const;
    std::string contactName() const { return displayName(); }
    std::string fileName() const { return displayName(); }
    std::string shortContactName() const;
    std::string shortDisplayName() const;
    // Title, first, middle and last name joined by blanks.
    std::string formattedName() const;
    // The organization, else formattedName.
    std::string organizationOrName() const;
    // The name block of an address: never broken inside a line (non-breaking spaces).
    std::string formattedNameForAddress() const;
    // Title and name on one line even for a private person (British usage).
    bool titleAndNameInOneLine() const;

    // Addresses. The templates come from BLLocales, chosen by the sender's (the default
    // profile's) and this contact's country.
    std::string postalAddress() const;
    std::string formattedAddress() const;
    // One line with ", " between the lines; nothing when the address is empty.
    std::optional<std::string> singleLinePostalAddress() const;
    // The whole single-line address when `address` is part of it (ASCII, any case), else
    // `address` unchanged.
    std::string extendAddressIfPossible(std::string_view address) const;
    // The stored code's country name in the current locale ("" for no or an unknown code).
    std::string countryName() const;
    // The name in the country record's locale when it has one, else countryName.
    std::string countryNameForAddress() const;
    ContactCard card() const;
    // The firm's own block: organization, department and postal address without a
    // person's name; a contact without an organization gives formattedAddress.
    std::string formattedCompanyAddress() const;
    // formattedAddress as HTML: text escaped, non-breaking spaces as "&nbsp;", lines
    // joined by "<br>".
    std::string formattedHTMLAddress() const;
    // A mailing label for `contact` at this contact's address: this organization and
    // department, the contact's name and this postal address, in plain blanks.
    // A null contact gives this contact's own label.
    std::string labelAddressForContact(const BLContact* contact) const;
    // The card as an address-book record, in the keys the dictionary builders read, plus
    // "Email", "Phone" and "Note"; absent fields are left out.
    Value::Dictionary ABDictionary() const;

    // The same builders over a dictionary with the keys "Organization", "Department",
    // "Title", "FirstName", "MiddleName", "LastName", "Street", "ZIP", "City", "State",
    // "CountryCode"; the sender's country decides the template and the country line.
    static std::string formattedAddressForDictionary(const Value::Dictionary& dictionary,
                                                     const std::optional<std::string>& senderCountryCode);
    static std::string formattedNameForAddressForDictionary(const Value::Dictionary& dictionary);
    static std::string postalAddressForDictionary(const Value::Dictionary& dictionary,
                                                  const std::optional<std::string>& senderCountryCode);

    // The card as vCard 3.0 text, one line per field even when it is empty.
    std::string vCardString() const;
    // A field for a vCard line: absent is empty, a line feed becomes "\n".
    static std::string vCardValue(const std::optional<std::string>& value);

    // Inherited values: a contact below another reads the topmost one's pay interval; the
    // rate falls back to the document's default time-import rate.
    std::optional<int16_t> payInterval() const;
    int16_t payIntervalValue() const { return payInterval().value_or(0); }
    std::optional<Decimal> effectiveRate() const;
    // The integer part of the mean paymentBehavior of the invoices below; nothing without one.
    std::optional<int64_t> paymentBehaviorAsNumber() const;
};

// The builders on a plain card, shared by objects and dictionaries.
std::string formattedNameForAddress(const ContactCard& card, bool titleAndNameInOneLine);
std::string postalAddress(const ContactCard& card, const std::optional<std::string>& senderCountryCode);
std::string formattedAddress(const ContactCard& card, bool titleAndNameInOneLine,
                             const std::optional<std::string>& senderCountryCode);

}  // namespace brassline
