#pragma once

#include <iosfwd>
#include <string>

namespace brassline::moneycommands {

// The command-line operations on currencies, taxes and a document's items and totals,
// apart from argument parsing. Each opens the company file as every command does
// (CommandFile), writes its answer to `out` and its failure to `err`, and answers the
// exit code (exitcode::). Totals and balances need the money and item hooks installed
// beforehand.

// The currencies, the book currency first, with symbol, rounding digits and rate; with
// `update` the rates are fetched from the service in "ExchangeRatesServiceURL" and saved
// first.
int rates(const std::string& path, bool update, std::ostream& out, std::ostream& err);
// The tax matrix: tax groups by client groups, each cell the rule's percentages and, for
// an untaxed cell, its VAT category.
int taxes(const std::string& path, std::ostream& out, std::ostream& err);
// The item tree and the totals of the sendable with `uid` (itemTreeReport, totalsReport).
int items(const std::string& path, const std::string& uid, bool json, std::ostream& out, std::ostream& err);
int totals(const std::string& path, const std::string& uid, bool json, std::ostream& out, std::ostream& err);

}  // namespace brassline::moneycommands
