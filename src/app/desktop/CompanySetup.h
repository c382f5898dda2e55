#pragma once

#include <string>
#include <utility>
#include <vector>

#include "core/Decimal.h"
#include "store/CommandFile.h"

namespace brassline::desktop {

// The answers of the short set-up of a new company file.
struct CompanySetup {
    std::string companyName;
    std::string street;
    std::string zip;
    std::string city;
    std::string countryCode;
    std::string email;
    std::string vatID;
    bool taxable = true;
    bool useGrossPrices = false;
    // Name and percentage; the first is the default rate.
    std::vector<std::pair<std::string, Decimal>> taxes;
    std::string iban;
    std::string bic;
    // Pattern lines as NumberingText reads them; empty keeps the kind without a pattern.
    std::string invoicePattern;
    std::string estimatePattern;
    std::string clientPattern;
};

// The pattern lines a new company starts with, in the current language.
CompanySetup defaultCompanySetup();

// Makes the company file at `path` through the model's first-run set-up (the same path
// as the command line's `new`), then stores the rest of the answers on the firm's
// profile, its bank payment type and the numbering, and saves. The file stays open while
// the handle lives. Nothing with the reason in `error`; a pattern that does not read is
// refused before anything is made.
std::optional<CommandFile> createCompany(const std::string& path, const CompanySetup& setup, std::string* error);

}  // namespace brassline::desktop
