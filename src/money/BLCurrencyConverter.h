#pragma once

#include <map>
#include <string>

namespace brassline {

class ManagedObjectContext;

// The exchange rates of one document: `dict` maps an ISO code to its rate against the
// service's common base. Borrows the context; main thread.
class BLCurrencyConverter {
public:
    explicit BLCurrencyConverter(ManagedObjectContext& context) : m_context(&context) {}

    // Fetches the latest rates from the service; on success they become `dict` and
    // update runs. Without a service or on any failure nothing changes (false, logged).
    bool load();
    // Each currency other than the default gets rate = dict[default] ÷ dict[own code] in
    // 32-bit floats, when both codes are known; others keep theirs. No undo is recorded.
    void update();

    const std::map<std::string, double>& dict() const { return m_dict; }
    void setDict(std::map<std::string, double> dict) { m_dict = std::move(dict); }

private:
    ManagedObjectContext* m_context;
    std::map<std::string, double> m_dict;
};

}  // namespace brassline
