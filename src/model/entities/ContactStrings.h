#pragma once

namespace brassline {

// Keys, texts and fixed values of the contact classes, spelled as they are stored, read
// and printed.

// User defaults.
inline constexpr const char* kSortNamesLastNameDefault = "sortNamesLastName";

// Per-document preferences ("<group>.<key>").
inline constexpr const char* kPrefTimeImporterDefaultRate = "timeImporter.defaultRate";
inline constexpr const char* kPrefClientNumber = "client.number";

// Words passed through the translation table.
inline constexpr const char* kArchivedText = "Archived";
inline constexpr const char* kNewClientText = "new client";
inline constexpr const char* kNewContactText = "new contact";

// Address templates: the tag a template may use to place the recipient block, and the
// country whose template serves when neither key is known.
inline constexpr const char* kRecipientTag = "<Recipient/>";
inline constexpr const char* kFallbackAddressFormatKey = "DE";

// vCard.
inline constexpr const char* kVCardProductID = "-//Orvane//Brassline";

// Keys read from other objects.
inline constexpr const char* kPaymentBehaviorKey = "paymentBehavior";

// Log messages.
inline constexpr const char* kNoClientNumberMessage = "No client number: numbering is not available";

}  // namespace brassline
