#pragma once

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "core/Value.h"

namespace brassline {

// A setting record with a constant, and one that reads a substitution key.
inline Value setting(const char* name, const char* value) {
    return Value(Value::Dictionary{{"parameterName", Value(name)}, {"value", Value(value)}});
}
inline Value keyed(const char* name, const char* key) {
    return Value(Value::Dictionary{{"parameterName", Value(name)}, {"key", Value(key)}});
}

// A file of tests/data/layout/payment-codes as it is.
inline std::string paymentCodeTestData(const std::string& name) {
    std::ifstream in(std::string(BRASSLINE_SOURCE_DIR) + "/tests/data/layout/payment-codes/" + name, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// The tab-separated rows of a vector file, without comment lines and the header.
inline std::vector<std::vector<std::string>> paymentCodeTestRows(const std::string& name) {
    std::vector<std::vector<std::string>> rows;
    std::istringstream lines(paymentCodeTestData(name));
    std::string line;
    bool header = true;
    while (std::getline(lines, line)) {
        if (line.empty() || line[0] == '#') {
            continue;
        }
        if (header) {
            header = false;
            continue;
        }
        std::vector<std::string> fields;
        size_t start = 0;
        while (true) {
            size_t tab = line.find('\t', start);
            fields.push_back(line.substr(start, tab == std::string::npos ? std::string::npos : tab - start));
            if (tab == std::string::npos) {
                break;
            }
            start = tab + 1;
        }
        rows.push_back(std::move(fields));
    }
    return rows;
}

}  // namespace brassline
