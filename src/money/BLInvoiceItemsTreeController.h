#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace brassline {

class BLBase;
class BLItem;
class BLSendable;
class ItemPasteboard;

// The editing rules of a document's item tree, apart from any view: what a user's insert,
// group, sort, duplicate, EAN scan and paste do to the items. Every change is refused
// (nothing happens, the answer says so) once the document is issued. Main thread; the
// controller borrows the document, which must outlive it.
class BLInvoiceItemsTreeController {
public:
    static constexpr size_t kMaximumPastedRows = 50;

    explicit BLInvoiceItemsTreeController(BLSendable& document) : m_document(document) {}

    // The selected items in tree order; new items become the selection.
    void setSelection(std::vector<BLItem*> items) { m_selection = std::move(items); }
    const std::vector<BLItem*>& selection() const { return m_selection; }
    bool canEditItems() const;

    // A new item of the entity, set up and inserted by the selection rule; null when the
    // entity is no item or the document is issued.
    BLItem* addItem(std::string_view entityName);
    // Into the first selected item when it allows the entity as a child, else after the
    // last selected item, else at the end. A new summary takes over the selected items
    // it allows.
    bool addManagedObject(BLItem* item, bool editAfterInsert);
    // Moves the selection into a new group named by their distinct names.
    BLItem* groupSelection();
    // Replaces titles and subtotals with one title and one subtotal per item group, the
    // items ordered by their item group's name.
    void insertTitlesAndSubtotals();
    // Sorts runs of like items (groups counting as costs) by `key`; titles, subtotals and
    // notes keep their places. Children of containers sort first.
    void sortItems(std::string_view key, bool ascending);
    // Clones (catalog items become costs) inserted at the selection: duplicate and
    // insertion from the catalog.
    std::vector<BLItem*> insertClonedObjectsAtSelection(const std::vector<BLBase*>& objects);
    // A cost with the EAN counts one more; else the first catalog item with it is
    // inserted. Whether anything matched.
    bool addEAN(const std::string& ean, bool editAfterInsert);
    // Tab-separated rows become costs (strings: unit, name, notes or name, notes;
    // numbers: price or quantity and price; the first date: the date). Text without a tab or
    // with more than kMaximumPastedRows rows inserts nothing. The number of costs made.
    size_t pasteText(const std::string& text);
    // Puts the selection on the pasteboard as this store's items (an item whose container
    // is selected too goes with the container only). Nothing selected: nothing changes.
    void copySelection(ItemPasteboard& pasteboard) const;
    // The first format found wins: this store's own items are cloned (new uids, children
    // with them) and inserted by the selection rule, else tab-separated text becomes
    // lines. One undoable step; nothing on an issued document. The number of items made.
    size_t paste(const ItemPasteboard& pasteboard);
    // Whether `dragged` may be dropped onto `target` (null: between top-level rows). Onto a
    // summary: only catalog items, costs, notes, internal notes and dynamic costs; onto a
    // group: only costs or only catalog items, of at most one item group, the group's own.
    // Objects of another context, other targets and issued documents are refused.
    bool validateDrop(const std::vector<BLBase*>& dragged, const BLItem* target) const;
    // Deletes the selection as one undoable step.
    void remove();

private:
    void insertAt(BLItem* item, BLBase* parent, size_t index);
    // Places an item by the selection rule of addManagedObject, without the summary's
    // take-over of the selection.
    void insertAtSelection(BLItem* item);

    BLSendable& m_document;
    std::vector<BLItem*> m_selection;
};

}  // namespace brassline
