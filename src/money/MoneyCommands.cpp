#include "money/MoneyCommands.h"

#include <algorithm>
#include <iomanip>
#include <optional>
#include <ostream>
#include <vector>

#include "model/FetchRequest.h"
#include "model/ManagedObjectContext.h"
#include "model/entities/BLClientGroup.h"
#include "model/entities/BLCurrency.h"
#include "model/entities/BLSendable.h"
#include "model/entities/BLTaxGroup.h"
#include "model/entities/BLTaxRule.h"
#include "money/BLCurrencyConverter.h"
#include "money/BLExchangeRates.h"
#include "money/ItemReport.h"
#include "store/CommandFile.h"

namespace brassline::moneycommands {

namespace {

using exitcode::kBadInput;
using exitcode::kSaveFailed;

template <typename T>
std::vector<T*> allObjects(ManagedObjectContext& context, const char* entity) {
    std::vector<T*> result;
    if (auto objects = context.executeFetchRequest(FetchRequest(entity))) {
        for (ManagedObject* object : *objects) {
            result.push_back(static_cast<T*>(object));
        }
    }
    return result;
}

std::string digitsText(const BLCurrency& currency) {
    RoundingBehavior behavior = currency.roundingBehavior();
    return behavior.scale ? std::to_string(*behavior.scale) : std::string("none");
}

// Fetches the latest rates into the file and saves them; the exit code.
int updateRates(CommandFile& file, std::ostream& err) {
    if (exchangeRatesServiceURL().empty()) {
        err << "brassline: no exchange rate service is set (application default "
               "\"ExchangeRatesServiceURL\"); rates are unchanged\n";
        return kBadInput;
    }
    BLCurrencyConverter converter(file.context());
    if (!converter.load()) {
        err << "brassline: the exchange rates could not be fetched; rates are unchanged\n";
        return kBadInput;
    }
    return file.save(err) ? exitcode::kSuccess : kSaveFailed;
}

// Every cell: the rule's percentages and, for an untaxed cell, its VAT category.
std::vector<std::vector<std::string>> taxTable(ManagedObjectContext& context) {
    std::vector<BLTaxGroup*> taxGroups = allObjects<BLTaxGroup>(context, "TaxGroup");
    std::vector<BLClientGroup*> clientGroups = allObjects<BLClientGroup>(context, "ClientGroup");
    std::stable_sort(taxGroups.begin(), taxGroups.end(),
                     [](const BLTaxGroup* a, const BLTaxGroup* b) { return a->importance() > b->importance(); });
    std::stable_sort(clientGroups.begin(), clientGroups.end(), [](const BLClientGroup* a, const BLClientGroup* b) {
        if (a->isDefaultValue() != b->isDefaultValue()) {
            return a->isDefaultValue();
        }
        return a->displayName() < b->displayName();
    });
    std::vector<std::vector<std::string>> table;
    std::vector<std::string> header{"tax group \\ client group"};
    for (const BLClientGroup* clientGroup : clientGroups) {
        header.push_back(clientGroup->displayName());
    }
    table.push_back(header);
    for (const BLTaxGroup* taxGroup : taxGroups) {
        std::vector<std::string> row{taxGroup->displayName()};
        for (const BLClientGroup* clientGroup : clientGroups) {
            std::string cell = "-";
            for (const BLTaxRule* rule : clientGroup->taxRules()) {
                if (rule->taxGroup() == taxGroup) {
                    cell = rule->tableInfo();
                    if (rule->tax1modeValue() == 0) {
                        cell += " [" + rule->taxCategoryCode() + "]";
                    }
                    break;
                }
            }
            row.push_back(cell);
        }
        table.push_back(row);
    }
    return table;
}

// Opens the company file, finds the sendable and prints the report.
int printReport(const std::string& path, const std::string& uid, bool json, std::string (*report)(BLSendable&, bool),
                std::ostream& out, std::ostream& err) {
    std::optional<CommandFile> file = CommandFile::open(path, err);
    if (!file) {
        return kBadInput;
    }
    ManagedObject* object = file->objectWithUid(uid, err);
    if (object == nullptr) {
        return kBadInput;
    }
    if (!object->isKindOfEntity("Sendable")) {
        err << "brassline: '" << uid << "' is a " << object->entityName()
            << ", not an invoice, estimate or other sendable document\n";
        return kBadInput;
    }
    out << report(*static_cast<BLSendable*>(object), json);
    return exitcode::kSuccess;
}

}  // namespace

int rates(const std::string& path, bool update, std::ostream& out, std::ostream& err) {
    std::optional<CommandFile> file = CommandFile::open(path, err);
    if (!file) {
        return kBadInput;
    }
    if (update) {
        if (int code = updateRates(*file, err); code != exitcode::kSuccess) {
            return code;
        }
    }
    std::vector<BLCurrency*> currencies = allObjects<BLCurrency>(file->context(), "Currency");
    std::sort(currencies.begin(), currencies.end(), [](const BLCurrency* a, const BLCurrency* b) {
        if (a->isDefaultValue() != b->isDefaultValue()) {
            return a->isDefaultValue();
        }
        return a->shortName() < b->shortName();
    });
    out << std::left << std::setw(8) << "code" << std::setw(8) << "symbol" << std::setw(8) << "digits"
        << "rate\n";
    for (const BLCurrency* currency : currencies) {
        out << std::setw(8) << currency->shortName() << std::setw(8) << currency->symbolOrName() << std::setw(8)
            << digitsText(*currency) << currency->rate().value_or(Decimal()).toString()
            << (currency->isDefaultValue() ? "  (default)" : "") << "\n";
    }
    return exitcode::kSuccess;
}

int taxes(const std::string& path, std::ostream& out, std::ostream& err) {
    std::optional<CommandFile> file = CommandFile::open(path, err);
    if (!file) {
        return kBadInput;
    }
    const std::vector<std::vector<std::string>> table = taxTable(file->context());
    std::vector<size_t> widths(table.front().size(), 0);
    for (const auto& row : table) {
        for (size_t column = 0; column < row.size(); ++column) {
            widths[column] = std::max(widths[column], row[column].size());
        }
    }
    for (const auto& row : table) {
        for (size_t column = 0; column < row.size(); ++column) {
            out << std::left << std::setw(static_cast<int>(widths[column] + 2)) << row[column];
        }
        out << "\n";
    }
    return exitcode::kSuccess;
}

int items(const std::string& path, const std::string& uid, bool json, std::ostream& out, std::ostream& err) {
    return printReport(path, uid, json, itemTreeReport, out, err);
}

int totals(const std::string& path, const std::string& uid, bool json, std::ostream& out, std::ostream& err) {
    return printReport(path, uid, json, totalsReport, out, err);
}

}  // namespace brassline::moneycommands
