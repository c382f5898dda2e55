#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "../store/StoreTestSupport.h"
#include "lifecycle/TagCommands.h"
#include "store/CompanyFileCommands.h"

namespace brassline {
namespace {

using storetest::CommandResult;
using storetest::runCommand;

class TagCommandsTest : public storetest::CompanyFileFixture {};

TEST_F(TagCommandsTest, TagsListSectionsWithTheFilesItemGroups) {
    insert("ItemGroup", {"name=Web Design"});
    CommandResult listed = runCommand([&](auto& out, auto& err) { return tagcommands::tags(m_path, false, out, err); });
    ASSERT_EQ(listed.code, 0) << listed.err;
    EXPECT_EQ(listed.out.rfind("document:\n  document.number\n", 0), 0u);
    // The new file's default group comes first, by name.
    const size_t sum = listed.out.find("\n  sum:\n    itemgroup.Default:\n");
    const size_t web = listed.out.find("\n    itemgroup.Web_Design:\n      itemgroup.Web_Design.net\n");
    EXPECT_NE(sum, std::string::npos);
    EXPECT_NE(web, std::string::npos);
    EXPECT_LT(sum, web);
    EXPECT_NE(listed.out.find("\nsender:\n  sender.formattedAddress\n"), std::string::npos);

    CommandResult json = runCommand([&](auto& out, auto& err) { return tagcommands::tags(m_path, true, out, err); });
    ASSERT_EQ(json.code, 0);
    EXPECT_EQ(json.out.rfind("[{\"name\":\"document\",", 0), 0u);

    CommandResult missing =
        runCommand([&](auto& out, auto& err) { return tagcommands::tags(m_path + ".missing", false, out, err); });
    EXPECT_EQ(missing.code, 1);
    EXPECT_FALSE(missing.err.empty());
}

TEST_F(TagCommandsTest, PlaceholdersOfADocumentAndATemplate) {
    const std::string invoice = insert("Invoice", {"lead=Hallo [Name], anbei die Rechnung."});
    const std::string cost = insert("Cost", {"parent=" + invoice, "name=Fahrt von [Start] nach [Ziel]"});
    CommandResult listed =
        runCommand([&](auto& out, auto& err) { return tagcommands::placeholders(m_path, invoice, false, out, err); });
    ASSERT_EQ(listed.code, 0) << listed.err;
    EXPECT_EQ(listed.out, invoice + "\tlead\tHallo [Name], anbei die Rechnung.\n  field\t[Name]\n" + cost +
                              "\tname\tFahrt von [Start] nach [Ziel]\n  field\t[Start]\n  field\t[Ziel]\n");

    const std::string stencil = insert("SendableTemplate", {"lead=Lieferung am 12. März 2025 nach Österreich"});
    CommandResult detected =
        runCommand([&](auto& out, auto& err) { return tagcommands::placeholders(m_path, stencil, true, out, err); });
    ASSERT_EQ(detected.code, 0) << detected.err;
    EXPECT_NE(
        detected.out.find("{\"range\":{\"length\":14,\"location\":13},\"type\":\"Date\",\"value\":\"12. März 2025\"}"),
        std::string::npos)
        << detected.out;

    CommandResult refused =
        runCommand([&](auto& out, auto& err) { return tagcommands::placeholders(m_path, cost, false, out, err); });
    EXPECT_EQ(refused.code, 1);
    EXPECT_NE(refused.err.find("is not a document"), std::string::npos);
}

}  // namespace
}  // namespace brassline
