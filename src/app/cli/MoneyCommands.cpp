#include <algorithm>
#include <iomanip>
#include <iostream>
#include <memory>
#include <sstream>

#include <CLI/CLI.hpp>

#include "app/cli/Commands.h"
#include "model/FetchRequest.h"
#include "model/ManagedObjectContext.h"
#include "model/RunLoop.h"
#include "model/entities/BLClientGroup.h"
#include "model/entities/BLContextState.h"
#include "model/entities/BLCurrency.h"
#include "model/entities/BLTaxGroup.h"
#include "model/entities/BLTaxRule.h"
#include "model/entities/gen/BrasslineModel.h"
#include "money/BLCurrencyConverter.h"
#include "money/BLExchangeRates.h"
#include "store/SQLiteStore.h"

namespace brassline::cli {

namespace {

constexpr int kBadInput = 1;
constexpr int kSaveFailed = 2;

// A company file opened for one command; pending run-loop work ends before the context.
class MoneyFile {
public:
    ~MoneyFile() {
        if (m_context) {
            RunLoop::main().runUntilIdle();
            BLContextState::forgetContext(*m_context);
        }
    }
    bool open(const std::string& path) {
        std::string error;
        std::unique_ptr<SQLiteStore> store = SQLiteStore::open(path, gen::brasslineModel(), &error);
        if (!store) {
            std::cerr << "brassline: " << error << "\n";
            return false;
        }
        m_context = std::make_unique<ManagedObjectContext>(gen::brasslineModel(), std::move(store));
        if (!m_context->loadError().empty()) {
            std::cerr << "brassline: " << m_context->loadError() << "\n";
            return false;
        }
        BLContextState::setReadyForDefaultValues(*m_context, true);
        return true;
    }
    bool save() {
        m_context->processPendingChanges();
        std::string error;
        if (!m_context->save(&error)) {
            std::cerr << "brassline: the company file can't be saved: " << error << "\n";
            return false;
        }
        return true;
    }
    ManagedObjectContext& context() { return *m_context; }

    template <typename T>
    std::vector<T*> all(const char* entity) {
        std::vector<T*> result;
        if (auto objects = m_context->executeFetchRequest(FetchRequest(entity))) {
            for (ManagedObject* object : *objects) {
                result.push_back(static_cast<T*>(object));
            }
        }
        return result;
    }

private:
    std::unique_ptr<ManagedObjectContext> m_context;
};

std::string digitsText(const BLCurrency& currency) {
    RoundingBehavior behavior = currency.roundingBehavior();
    return behavior.scale ? std::to_string(*behavior.scale) : std::string("none");
}

int showRates(const std::string& path, bool update) {
    MoneyFile file;
    if (!file.open(path)) {
        return kBadInput;
    }
    if (update) {
        if (exchangeRatesServiceURL().empty()) {
            std::cerr << "brassline: no exchange rate service is set (application default "
                         "\"ExchangeRatesServiceURL\"); rates are unchanged\n";
            return kBadInput;
        }
        BLCurrencyConverter converter(file.context());
        if (!converter.load()) {
            std::cerr << "brassline: the exchange rates could not be fetched; rates are unchanged\n";
            return kBadInput;
        }
        if (!file.save()) {
            return kSaveFailed;
        }
    }
    std::vector<BLCurrency*> currencies = file.all<BLCurrency>("Currency");
    std::sort(currencies.begin(), currencies.end(), [](const BLCurrency* a, const BLCurrency* b) {
        if (a->isDefaultValue() != b->isDefaultValue()) {
            return a->isDefaultValue();
        }
        return a->shortName() < b->shortName();
    });
    std::cout << std::left << std::setw(8) << "code" << std::setw(8) << "symbol" << std::setw(8) << "digits"
              << "rate\n";
    for (const BLCurrency* currency : currencies) {
        std::cout << std::setw(8) << currency->shortName() << std::setw(8) << currency->symbolOrName() << std::setw(8)
                  << digitsText(*currency) << currency->rate().value_or(Decimal()).toString()
                  << (currency->isDefaultValue() ? "  (default)" : "") << "\n";
    }
    return 0;
}

int showTaxes(const std::string& path) {
    MoneyFile file;
    if (!file.open(path)) {
        return kBadInput;
    }
    std::vector<BLTaxGroup*> taxGroups = file.all<BLTaxGroup>("TaxGroup");
    std::vector<BLClientGroup*> clientGroups = file.all<BLClientGroup>("ClientGroup");
    std::stable_sort(taxGroups.begin(), taxGroups.end(),
                     [](const BLTaxGroup* a, const BLTaxGroup* b) { return a->importance() > b->importance(); });
    std::stable_sort(clientGroups.begin(), clientGroups.end(), [](const BLClientGroup* a, const BLClientGroup* b) {
        if (a->isDefaultValue() != b->isDefaultValue()) {
            return a->isDefaultValue();
        }
        return a->displayName() < b->displayName();
    });
    // Each cell: the rule's percentages and, for an untaxed cell, its VAT category.
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
    std::vector<size_t> widths(header.size(), 0);
    for (const auto& row : table) {
        for (size_t column = 0; column < row.size(); ++column) {
            widths[column] = std::max(widths[column], row[column].size());
        }
    }
    for (const auto& row : table) {
        for (size_t column = 0; column < row.size(); ++column) {
            std::cout << std::left << std::setw(static_cast<int>(widths[column] + 2)) << row[column];
        }
        std::cout << "\n";
    }
    return 0;
}

}  // namespace

void addMoneyCommands(CLI::App& app, int& exitCode) {
    {
        auto path = std::make_shared<std::string>();
        auto update = std::make_shared<bool>(false);
        CLI::App* command = app.add_subcommand(
            "rates", "Show the currencies with their rounding digits and rates against the book currency");
        command->add_option("path", *path, "The company file")->required();
        command->add_flag("--update", *update,
                          "Fetch the latest rates from the service set in \"ExchangeRatesServiceURL\" first");
        command->callback([path, update, &exitCode] { exitCode = showRates(*path, *update); });
    }
    {
        auto path = std::make_shared<std::string>();
        CLI::App* command =
            app.add_subcommand("taxes", "Show the tax matrix: tax groups by client groups, one rule per cell");
        command->add_option("path", *path, "The company file")->required();
        command->callback([path, &exitCode] { exitCode = showTaxes(*path); });
    }
}

}  // namespace brassline::cli
