#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "../model/ContactFixture.h"
#include "core/Localization.h"
#include "lifecycle/BLPlaceHolderWrapper.h"
#include "model/entities/BLCost.h"
#include "model/entities/BLInvoice.h"
#include "model/entities/BLNote.h"
#include "model/entities/BLSendableTemplate.h"
#include "model/entities/BLTitle.h"

namespace brassline {
namespace {

class PlaceHolderWrapperTest : public ContactFixture {
protected:
    template <typename T>
    T* itemUnder(BLContainer* parent, const char* name, const char* notes = nullptr) {
        T* item = insert<T>();
        item->setName(std::string(name));
        if (notes != nullptr) {
            item->setNotes(std::string(notes));
        }
        item->setParent(parent);
        return item;
    }
    static std::vector<std::string> describe(const std::vector<BLPlaceHolderWrapper>& wrappers) {
        std::vector<std::string> result;
        for (const BLPlaceHolderWrapper& wrapper : wrappers) {
            result.push_back(wrapper.field() + "=" + wrapper.text() + " tokens " +
                             std::to_string(wrapper.tokens().size()));
        }
        return result;
    }
};

TEST_F(PlaceHolderWrapperTest, WrappersOnItemTextsAndTheLead) {
    auto* invoice = insert<BLInvoice>();
    invoice->setLead(std::string("Sehr geehrte Damen und Herren, anbei [Betreff]."));
    auto* cost = itemUnder<BLCost>(invoice, "Fahrt von [Start] nach [Ziel]", "ohne Feld");
    auto* both = itemUnder<BLCost>(invoice, "[Menge] Stunden", "am [Datum]");
    auto* note = itemUnder<BLNote>(invoice, "[ignored: notes only]", "Hinweis [Text]");
    auto* title = itemUnder<BLTitle>(invoice, "Abschnitt [Titel]", "[not a title field]");
    auto* open = itemUnder<BLCost>(invoice, "nur eine [Klammer", "und ] hier");

    const std::vector<BLBase*> objects = {invoice, cost, both, note, title, open};
    const std::vector<BLPlaceHolderWrapper> wrappers =
        BLPlaceHolderWrapper::wrappersForManagedObjects(objects, invoice);
    const std::vector<std::string> expected = {
        "lead=Sehr geehrte Damen und Herren, anbei [Betreff]. tokens 0",
        "name=Fahrt von [Start] nach [Ziel] tokens 0",
        "name=[Menge] Stunden tokens 0",
        "notes=am [Datum] tokens 0",
        "notes=Hinweis [Text] tokens 0",
        "name=Abschnitt [Titel] tokens 0",
    };
    EXPECT_EQ(describe(wrappers), expected);
    EXPECT_EQ(wrappers[1].managedObject(), cost);
    EXPECT_TRUE(BLPlaceHolderWrapper::wrappersForManagedObject(*insert<BLClient>(), invoice).empty());
}

TEST_F(PlaceHolderWrapperTest, TemplatesDetectValuesAndFallBackToBrackets) {
    auto* stencil = insert<BLSendableTemplate>();
    stencil->setLead(std::string("Lieferung am 12. März 2025 nach Österreich"));
    auto* bracketOnly = itemUnder<BLCost>(stencil, "Pauschale [Betrag]");
    auto* plain = itemUnder<BLCost>(stencil, "Pauschale");

    const std::vector<BLPlaceHolderWrapper> wrappers =
        BLPlaceHolderWrapper::wrappersForManagedObjects({stencil, bracketOnly, plain}, stencil);
    ASSERT_EQ(wrappers.size(), 2u);
    ASSERT_EQ(wrappers[0].tokens().size(), 2u);
    EXPECT_EQ(wrappers[0].tokens()[0].value, "12. März 2025");
    EXPECT_EQ(wrappers[0].tokens()[1].value, "Österreich");
    EXPECT_TRUE(wrappers[1].tokens().empty());
    EXPECT_EQ(wrappers[1].field(), "name");
}

TEST_F(PlaceHolderWrapperTest, UniqueTokensAreGroupedByValueAndLabelledPerType) {
    auto* stencil = insert<BLSendableTemplate>();
    auto* first = itemUnder<BLCost>(stencil, "Termin 12.03.2025 in Österreich");
    auto* second = itemUnder<BLCost>(stencil, "Ersatz 01.04.2025 statt 12.03.2025");
    std::vector<BLPlaceHolderWrapper> wrappers =
        BLPlaceHolderWrapper::wrappersForManagedObjects({first, second}, stencil);
    ASSERT_EQ(wrappers.size(), 2u);

    std::vector<UniquePlaceHolderToken> unique = BLPlaceHolderWrapper::uniqueTokensForWrappers(wrappers);
    ASSERT_EQ(unique.size(), 3u);
    EXPECT_EQ(unique[0].string, "12.03.2025");
    EXPECT_EQ(unique[0].wrappers, (std::vector<size_t>{0, 1}));
    EXPECT_EQ(unique[1].string, "Österreich");
    EXPECT_EQ(unique[1].wrappers, (std::vector<size_t>{0}));
    EXPECT_EQ(unique[2].string, "01.04.2025");

    struct Row {
        const char* language;
        std::vector<std::string> labels;
    };
    const Row rows[] = {
        {"en", {"Date", "Place", "Date 2"}},
        {"de", {"Datum", "Ort", "Datum 2"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.language);
        setCurrentLanguage(row.language);
        BLPlaceHolderWrapper::labelUniqueTokens(unique);
        std::vector<std::string> labels;
        for (const UniquePlaceHolderToken& token : unique) {
            labels.push_back(token.label);
        }
        EXPECT_EQ(labels, row.labels);
    }
    setCurrentLanguage("en");
}

TEST_F(PlaceHolderWrapperTest, ApplyTokensTurnsChosenValuesIntoFields) {
    auto* stencil = insert<BLSendableTemplate>();
    auto* first = itemUnder<BLCost>(stencil, "Termin 12.03.2025 in Österreich");
    auto* second = itemUnder<BLCost>(stencil, "Ersatz 01.04.2025 statt 12.03.2025");
    std::vector<BLPlaceHolderWrapper> wrappers =
        BLPlaceHolderWrapper::wrappersForManagedObjects({first, second}, stencil);

    // A cancelled choice changes nothing.
    EXPECT_EQ(BLPlaceHolderWrapper::applyTokens(wrappers, [](const auto&) { return std::nullopt; }), 0u);
    EXPECT_EQ(*first->name(), "Termin 12.03.2025 in Österreich");

    // Switched off, the chooser is never asked.
    modelHooks().userDefaultBool = [](std::string_view key) { return key == kDisablePlaceHolderCreationDefault; };
    bool asked = false;
    EXPECT_EQ(BLPlaceHolderWrapper::applyTokens(wrappers,
                                                [&](const auto&) {
                                                    asked = true;
                                                    return std::optional<std::vector<size_t>>(std::vector<size_t>{0});
                                                }),
              0u);
    EXPECT_FALSE(asked);
    modelHooks().userDefaultBool = nullptr;

    // The first date and the third token (the second date); an index past the end is skipped.
    const size_t applied = BLPlaceHolderWrapper::applyTokens(wrappers, [](const auto&) {
        return std::optional<std::vector<size_t>>(std::vector<size_t>{0, 2, 7});
    });
    EXPECT_EQ(applied, 2u);
    EXPECT_EQ(*first->name(), "Termin [Date] in Österreich");
    EXPECT_EQ(*second->name(), "Ersatz [Date 2] statt [Date]");
}

TEST_F(PlaceHolderWrapperTest, ReplaceStringReplacesEveryOccurrence) {
    struct Row {
        const char* text;
        const char* target;
        const char* replacement;
        const char* expected;
    };
    const Row rows[] = {
        {"A [x] and [x] and [y]", "[x]", "1", "A 1 and 1 and [y]"},
        {"aaa", "aa", "b", "ba"},
        {"Grüße [Ort]", "[Ort]", "Zürich", "Grüße Zürich"},
        {"nothing here", "[x]", "1", "nothing here"},
        {"empty target", "", "1", "empty target"},
        {"[x]", "[x]", "", ""},
    };
    auto* cost = insert<BLCost>();
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        cost->setName(std::string(row.text));
        BLPlaceHolderWrapper wrapper(cost, "name");
        wrapper.replaceString(row.target, row.replacement);
        EXPECT_EQ(cost->name().value_or("(none)"), row.expected);
    }
}

TEST_F(PlaceHolderWrapperTest, AlteredRangesAreWordsSomeVariationLacks) {
    struct Row {
        const char* text;
        std::vector<std::string> variations;
        std::vector<std::pair<std::string, std::string>> expected;
    };
    const Row rows[] = {
        {"Lieferung nach Österreich am Montag",
         {"Lieferung nach Italien am Montag", "Lieferung nach Österreich am Freitag"},
         {{"Österreich", kTokenTypePlace}, {"Montag", kTokenTypeText}}},
        // Adjacent altered words are one range; the date stays one word.
        {"Bitte neue Adresse bis 12.03.2025",
         {"Bitte alte Nummer bis 01.04.2025"},
         {{"neue Adresse", kTokenTypeText}, {"12.03.2025", kTokenTypeDate}}},
        {"Gleich bleibt gleich", {"Gleich bleibt gleich"}, {}},
        {"Mit [Feld] schon fertig", {"anders"}, {}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        std::vector<std::pair<std::string, std::string>> found;
        for (const PlaceHolderToken& token :
             BLPlaceHolderWrapper::highlightAlteredRangesInString(row.text, row.variations)) {
            found.emplace_back(token.value, token.type);
        }
        EXPECT_EQ(found, row.expected);
    }
}

}  // namespace
}  // namespace brassline
