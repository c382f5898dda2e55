#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/Value.h"

namespace brassline {

class ManagedObjectContext;

// Fixed uids of the objects a new company file starts with.
inline constexpr const char* kDefaultForeignClientGroupUID = "com.orvane.Brassline.defaultForeignClientGroup";
inline constexpr const char* kDefaultClientGroupUID = "com.orvane.Brassline.defaultClientGroup";
inline constexpr const char* kDefaultTaxGroupNoTaxUID = "com.orvane.Brassline.defaultTaxGroupNoTax";
inline constexpr const char* kDefaultTaxGroupTaxUIDFormat = "com.orvane.Brassline.defaultTaxGroupTax%ld";
inline constexpr const char* kDefaultItemGroupUID = "com.orvane.Brassline.defaultItemGroup";
inline constexpr const char* kDefaultFollowUpTypeUID = "com.orvane.Brassline.defaultFollowType";
inline constexpr const char* kDefaultLayoutStorageUID = "com.orvane.Brassline.defaultLayoutStorage";
inline constexpr const char* kDefaultLayoutUID = "com.orvane.Brassline.defaultLayout";
inline constexpr const char* kEstimatePaymentTypeName = "BLEstimate";
inline constexpr const char* kXRechnungPluginIdentifier = "com.orvane.brassline.e-invoice.XRechnung.3_0";

// The first-run contents of a company file, from the quick set-up's answers.
class BLSetupDefaultsController {
public:
    // `setup` holds "vatID", "taxable", "useGrossPrices" and "taxes" (records of "name"
    // and "value"). Makes the profile, payment type, client, tax, item and follow-up
    // groups, the default layout and the preferences, with undo registration off.
    static void setupWithObject(const Value::Dictionary& setup, ManagedObjectContext& context);
    // Inserts each preference of "BLPref.plist" that the context does not hold yet (new
    // and older files alike).
    static void setupPreferencesForManagedObjectContext(ManagedObjectContext& context);
    // Stores the number, file name and folder patterns of "NumberPatterns.plist" in the
    // company's language (the current one; English where it has none) for each kind
    // whose pattern preference does not exist yet, with a yearly counter reset where a
    // pattern counts within the year. `patterns` holds a pattern list per kind ("invoice",
    // "estimate", "client", "project", "documents.filename", "documents.directory") that
    // takes the place of the default; a kind already set keeps its pattern either way.
    // Answers the kinds it stored.
    static std::vector<std::string> setupNumberPatternsForManagedObjectContext(ManagedObjectContext& context,
                                                                               const Value::Dictionary& patterns = {});
    // Gives the default payment type the payment terms of "PaymentTerms.plist" in the
    // company's language when it has none, and makes a default validity type
    // ("BLEstimate") with the estimate's terms when there is none of that kind.
    static void setupPaymentTermsForManagedObjectContext(ManagedObjectContext& context);
    // Gives every client without a language the default language.
    static void setupLanguageForManagedObjectContext(ManagedObjectContext& context);

    // A property list of the resources folder as a dictionary; nothing (logged) when it
    // is missing or not a dictionary.
    static std::optional<Value::Dictionary> resourceDictionary(std::string_view name);
    // Where resources are read from; tests point it elsewhere. Empty restores the built-in.
    static void setResourcesDirectory(std::string path);
    static std::string resourcesDirectory();
};

}  // namespace brassline
