#include "money/ItemReport.h"

#include <sstream>

#include "core/Value.h"
#include "model/entities/BLCurrency.h"
#include "model/entities/BLItem.h"
#include "model/entities/BLSendable.h"

namespace brassline {

namespace {

bool carriesMoney(const BLItem& item) {
    return BLItem::itemIsCost(&item) || item.isKindOfEntity("Cost");
}

Value::Dictionary itemRecord(BLItem& item, const BLSendable& document) {
    Value::Dictionary record{{"entity", Value(item.entityName())},
                             {"uid", Value(item.uid().value_or(""))},
                             {"name", Value(item.name().value_or(""))},
                             {"position", Value(item.fullIndexForDocument(&document))}};
    if (carriesMoney(item)) {
        record["quantity"] = Value(item.lineQuantity().toString());
        record["unitPrice"] = Value(item.lineUnitPrice().toString());
        record["discount"] = Value(item.lineDiscount().toString());
        record["cost"] = Value(item.cost().toString());
        record["optional"] = Value(item.isOptional());
    } else if (item.entityName() == "SubTotal" || BLItem::itemIsTitle(&item)) {
        record["sum"] = Value(item.sum().toString());
    }
    Value::Array children;
    for (BLItem* child : itemChildren(item)) {
        children.emplace_back(itemRecord(*child, document));
    }
    if (!children.empty()) {
        record["items"] = Value(std::move(children));
    }
    return record;
}

void writeItemLine(std::ostream& out, BLItem& item, const BLSendable& document, int depth) {
    std::string position = item.fullIndexForDocument(&document);
    out << std::string(static_cast<size_t>(depth) * 2, ' ') << (position.empty() ? "-" : position) << "\t"
        << item.entityName() << "\t" << item.name().value_or("");
    if (carriesMoney(item)) {
        out << "\t" << item.lineQuantity().toString() << " x " << item.lineUnitPrice().toString();
        if (!item.lineDiscount().isZero()) {
            out << " -" << item.lineDiscount().toString() << "%";
        }
        out << "\t" << item.cost().toString() << (item.isOptional() ? "\t(optional)" : "");
    } else if (item.entityName() == "SubTotal" || BLItem::itemIsTitle(&item)) {
        out << "\t\t" << item.sum().toString();
    }
    out << "\n";
    for (BLItem* child : itemChildren(item)) {
        writeItemLine(out, *child, document, depth + 1);
    }
}

}  // namespace

std::string itemTreeReport(BLSendable& document, bool json) {
    std::ostringstream out;
    if (json) {
        Value::Array items;
        for (BLItem* item : itemChildren(document)) {
            items.emplace_back(itemRecord(*item, document));
        }
        Value::Dictionary report{{"uid", Value(document.uid().value_or(""))}, {"items", Value(std::move(items))}};
        out << Value(std::move(report)).toJSON() << "\n";
        return out.str();
    }
    for (BLItem* item : itemChildren(document)) {
        writeItemLine(out, *item, document, 0);
    }
    return out.str();
}

std::string totalsReport(BLSendable& document, bool json) {
    std::string currency = document.currency() != nullptr ? document.currency()->name().value_or("") : "";
    Value::Dictionary totals{
        {"currency", Value(currency)},
        {"net", Value(document.cost().toString())},
        {"tax", Value(document.tax().toString())},
        {"gross", Value(document.costWithTaxes().toString())},
        {"discountPercent", Value(document.discount().value_or(Decimal()).toString())},
        {"discount", Value(document.discountAmount().toString())},
        {"balance", Value(document.balance().toString())},
    };
    std::ostringstream out;
    if (json) {
        out << Value(totals).toJSON() << "\n";
        return out.str();
    }
    const char* order[] = {"net", "tax", "gross", "discount", "balance"};
    for (const char* key : order) {
        out << key << "\t" << totals[key].toString();
        if (std::string_view(key) == "discount" && !document.discount().value_or(Decimal()).isZero()) {
            out << "\t(" << totals["discountPercent"].toString() << "%)";
        }
        out << "\t" << currency << "\n";
    }
    return out.str();
}

}  // namespace brassline
