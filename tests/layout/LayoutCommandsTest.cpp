#include <sstream>
#include <string>

#include <gtest/gtest.h>
#include <unicode/locid.h>

#include "../store/StoreTestSupport.h"
#include "layout/LayoutCommands.h"
#include "layout/LayoutHooks.h"
#include "model/NotificationCenter.h"
#include "model/RunLoop.h"
#include "model/entities/BLLayout.h"
#include "model/entities/BLLayoutStorage.h"
#include "model/entities/ModelHooks.h"
#include "store/CommandFile.h"
#include "store/CompanyFileCommands.h"
#include "store/DocumentHooks.h"

namespace brassline {
namespace {

using storetest::CommandResult;
using storetest::runCommand;

constexpr const char* kLayout = "com.orvane.Brassline.defaultLayout";

class LayoutCommandsTest : public ::testing::Test {
protected:
    void SetUp() override {
        RunLoop::resetMainForTesting();
        NotificationCenter::resetDefaultCenterForTesting();
        resetModelHooks();
        resetDocumentHooks();
        installLayoutHooks();
        // The new file's profile takes its country from the locale: a German one, on A4.
        UErrorCode status = U_ZERO_ERROR;
        icu::Locale::setDefault(icu::Locale("de_DE"), status);
        m_path = create("Acme.brassline");
    }
    void TearDown() override {
        UErrorCode status = U_ZERO_ERROR;
        icu::Locale::setDefault(m_locale, status);
        RunLoop::resetMainForTesting();
        resetModelHooks();
        resetDocumentHooks();
        NotificationCenter::resetDefaultCenterForTesting();
    }
    std::string create(const std::string& name) {
        const std::string path = m_folder / name;
        CommandResult created =
            runCommand([&](auto& out, auto& err) { return companyfile::newFile(path, {}, out, err); });
        EXPECT_EQ(created.code, 0) << created.err;
        return path;
    }
    Value dumpJSON(const std::string& path) {
        CommandResult dumped =
            runCommand([&](auto& out, auto& err) { return layoutcommands::dump(path, kLayout, true, out, err); });
        EXPECT_EQ(dumped.code, 0) << dumped.err;
        return Value::fromJSON(dumped.out).value_or(Value());
    }

    icu::Locale m_locale = icu::Locale::getDefault();
    storetest::TemporaryFolder m_folder;
    std::string m_path;
};

TEST_F(LayoutCommandsTest, ANewFileHasItsDefaultLayoutAndDumpShowsIt) {
    CommandResult listed =
        runCommand([&](auto& out, auto& err) { return layoutcommands::list(m_path, true, out, err); });
    ASSERT_EQ(listed.code, 0) << listed.err;
    const Value layouts = Value::fromJSON(listed.out).value_or(Value());
    ASSERT_EQ(layouts.count(), 1U);
    EXPECT_EQ(layouts[0]["uid"], Value(kLayout));
    EXPECT_EQ(layouts[0]["paperSize"], Value("{595, 842}"));
    EXPECT_EQ(layouts[0]["paperName"], Value("A4"));
    // The default profile's layout and the follow-up type's point at it.
    EXPECT_EQ(layouts[0]["usage"], Value(2));

    CommandResult text =
        runCommand([&](auto& out, auto& err) { return layoutcommands::dump(m_path, kLayout, false, out, err); });
    ASSERT_EQ(text.code, 0) << text.err;
    EXPECT_EQ(text.out.rfind("page firstpage\n  BLLayoutPageView 0 0 595 842\n", 0), 0U) << text.out;
    EXPECT_NE(text.out.find("\nsection item\n  BLLayoutTableSectionView 0 0 467 "), std::string::npos);
    EXPECT_NE(text.out.find("    BLLayoutTablePreviewView 71 316 467 400\n"), std::string::npos);

    const Value dump = dumpJSON(m_path);
    ASSERT_EQ(dump["pages"].count(), 2U);
    ASSERT_EQ(dump["tableSections"].count(), 15U);
    EXPECT_EQ(dump["tableSections"][14]["identifier"], Value("footer"));
    EXPECT_EQ(dump["pages"][1]["view"]["className"], Value("BLLayoutPageView"));
}

TEST_F(LayoutCommandsTest, ExportAndImportRoundTripBetweenFiles) {
    const std::string package = m_folder / "Acme layout.brassline";
    // First make the layout differ from a fresh default: US Letter.
    CommandResult resized =
        runCommand([&](auto& out, auto& err) { return layoutcommands::paper(m_path, kLayout, "letter", out, err); });
    ASSERT_EQ(resized.code, 0) << resized.err;
    EXPECT_EQ(resized.out, "{612, 792} US Letter\n");
    CommandResult exported = runCommand(
        [&](auto& out, auto& err) { return layoutcommands::exportLayout(m_path, kLayout, package, out, err); });
    ASSERT_EQ(exported.code, 0) << exported.err;

    const std::string other = create("Other.brassline");
    CommandResult refused = runCommand(
        [&](auto& out, auto& err) { return layoutcommands::importPackage(other, package, false, out, err); });
    EXPECT_EQ(refused.code, 1);
    EXPECT_NE(refused.err.find("--replace"), std::string::npos) << refused.err;
    CommandResult replaced =
        runCommand([&](auto& out, auto& err) { return layoutcommands::importPackage(other, package, true, out, err); });
    ASSERT_EQ(replaced.code, 0) << replaced.err;
    EXPECT_EQ(replaced.out, std::string(kLayout) + " Layout replaced\n");
    EXPECT_EQ(dumpJSON(other), dumpJSON(m_path));
    CommandResult paper =
        runCommand([&](auto& out, auto& err) { return layoutcommands::paper(other, kLayout, "", out, err); });
    EXPECT_EQ(paper.out, "{612, 792} US Letter\n");
}

TEST_F(LayoutCommandsTest, BadArgumentsAndADamagedArchiveSaySoOnStandardError) {
    struct Case {
        const char* name;
        std::function<int(std::ostream&, std::ostream&)> run;
        int code;
        const char* message;
    };
    const std::string path = m_path;
    const Case cases[] = {
        {"unknown paper",
         [&](auto& out, auto& err) { return layoutcommands::paper(path, kLayout, "napkin", out, err); }, 1,
         "no paper named 'napkin'"},
        {"no layout", [&](auto& out, auto& err) { return layoutcommands::dump(path, "nothing", false, out, err); }, 1,
         "nothing"},
        {"not a layout",
         [&](auto& out, auto& err) {
             return layoutcommands::dump(path, "com.orvane.Brassline.defaultItemGroup", false, out, err);
         },
         1, "is no layout"},
        {"missing package",
         [&](auto& out, auto& err) { return layoutcommands::importPackage(path, path + ".missing", false, out, err); },
         1, "is no layout package"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        CommandResult result = runCommand(c.run);
        EXPECT_EQ(result.code, c.code);
        EXPECT_NE(result.err.find(c.message), std::string::npos) << result.err;
    }

    {
        std::ostringstream err;
        std::optional<CommandFile> file = CommandFile::open(m_path, err);
        ASSERT_TRUE(file) << err.str();
        auto* layout = dynamic_cast<BLLayout*>(file->objectWithUid(kLayout, err));
        ASSERT_NE(layout, nullptr);
        Bytes truncated = *layout->storage()->data();
        truncated.resize(truncated.size() / 3);
        layout->storage()->setData(truncated);
        ASSERT_TRUE(file->save(err)) << err.str();
    }
    CommandResult damaged =
        runCommand([&](auto& out, auto& err) { return layoutcommands::dump(m_path, kLayout, true, out, err); });
    EXPECT_EQ(damaged.code, 0);
    EXPECT_NE(damaged.err.find("damaged"), std::string::npos) << damaged.err;
    const Value dump = Value::fromJSON(damaged.out).value_or(Value());
    EXPECT_EQ(dump["pages"].count(), 0U);
    EXPECT_EQ(dump["tableSections"].count(), 15U);
}

}  // namespace
}  // namespace brassline
