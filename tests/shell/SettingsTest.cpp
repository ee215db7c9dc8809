// SPDX-License-Identifier: GPL-3.0-or-later
#include "shell/Settings.h"
#include "shell/SettingsCatalogue.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>

#include <gtest/gtest.h>

namespace ledgerfinch {
namespace {

class SettingsTest : public testing::Test {
protected:
    void SetUp() override {
        std::string pattern = testing::TempDir() + "settingsXXXXXX";
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        m_folder = pattern;
        auto opened = UserDefaults::open(m_folder / "suite.conf");
        ASSERT_TRUE(opened) << opened.error().message;
        m_defaults = std::move(opened).value();
    }
    void TearDown() override {
        m_defaults.reset();
        std::filesystem::remove_all(m_folder);
    }

    [[nodiscard]] std::string fileContent() const {
        std::ifstream file(m_folder / "suite.conf", std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    std::string errorOf(std::string_view name, std::string_view text) {
        const auto result = settings::setFromText(*m_defaults, name, text);
        return result ? "stored" : result.error().message;
    }

    std::filesystem::path m_folder;
    std::unique_ptr<UserDefaults> m_defaults;
};

TEST_F(SettingsTest, AKeyNeverWrittenReadsAsItsDefaultWhichIsNotStored) {
    const std::string before = fileContent();
    EXPECT_EQ(settings::read(*m_defaults, settings::server), "");
    EXPECT_EQ(settings::read(*m_defaults, settings::server_version), "1.0.0");
    EXPECT_EQ(settings::read(*m_defaults, settings::useCustomQueries), true);
    EXPECT_EQ(settings::read(*m_defaults, settings::download_saved_view), 0);
    EXPECT_EQ(settings::read(*m_defaults, settings::defaultTab), SelectedTab::documents);
    EXPECT_EQ(settings::read(*m_defaults, settings::shareDocumentsVia), ShareDocumentsVia::askEachTime);
    EXPECT_EQ(settings::read(*m_defaults, settings::notification_user_id), std::nullopt);
    for (const auto& setting : settings::catalogue()) {
        EXPECT_EQ(settings::displayText(*m_defaults, setting), setting.defaultText) << setting.name;
        EXPECT_FALSE(m_defaults->string(setting.name)) << setting.name;
    }
    EXPECT_EQ(fileContent(), before);
}

TEST_F(SettingsTest, WrittenValuesReadBackAlsoWhenEmptyOrEqualToTheDefault) {
    ASSERT_TRUE(settings::write(*m_defaults, settings::importFilenameScheme, ""));
    EXPECT_EQ(settings::read(*m_defaults, settings::importFilenameScheme), "")
        << "the default is for an absent key only";
    ASSERT_TRUE(settings::write(*m_defaults, settings::invertPreview, true));
    EXPECT_EQ(m_defaults->boolean("invertPreview"), true);
    ASSERT_TRUE(settings::write(*m_defaults, settings::defaultCustomView, 9007199254740993));
    EXPECT_EQ(settings::read(*m_defaults, settings::defaultCustomView), 9007199254740993);
    ASSERT_TRUE(settings::write(*m_defaults, settings::shareDocumentsVia, ShareDocumentsVia::customURL));
    EXPECT_EQ(m_defaults->string("shareDocumentsVia"), "ledgerfinch url");
    ASSERT_TRUE(settings::write(*m_defaults, settings::notification_user_id, "ABC"));
    EXPECT_EQ(settings::read(*m_defaults, settings::notification_user_id), "ABC");
    ASSERT_TRUE(settings::write(*m_defaults, settings::notification_user_id, std::nullopt));
    EXPECT_EQ(m_defaults->string("notification_user_id"), std::nullopt);
    ASSERT_TRUE(settings::remove(*m_defaults, settings::importFilenameScheme));
    EXPECT_EQ(settings::read(*m_defaults, settings::importFilenameScheme), "{year}-{month}-{day}");

    const std::string userKey = settings::currentUserIdKey("https://papers.example:8000");
    ASSERT_TRUE(m_defaults->set(userKey, std::int64_t{4}));
    EXPECT_EQ(m_defaults->integer("https://papers.example:8000currentUserId"), 4);
}

TEST_F(SettingsTest, AForeignTextOrTypeReadsAsTheDefault) {
    ASSERT_TRUE(m_defaults->set("colorScheme", "purple"));
    ASSERT_TRUE(m_defaults->set("defaultTab", "Documents"));
    ASSERT_TRUE(m_defaults->set("useiCloud", "maybe"));
    EXPECT_EQ(settings::read(*m_defaults, settings::colorScheme), StorableColorScheme::system);
    EXPECT_EQ(settings::displayText(*m_defaults, *settings::find("colorScheme")), "system");
    EXPECT_EQ(settings::read(*m_defaults, settings::defaultTab), SelectedTab::documents);
    EXPECT_EQ(settings::read(*m_defaults, settings::useiCloud), false);
}

TEST_F(SettingsTest, AValueWrittenByHandReadsAsWhatItMeans) {
    {
        std::ofstream file(m_folder / "suite.conf", std::ios::binary | std::ios::app);
        file << "useiCloud=1\nuseNewMenus=0\nofflineMode=YES\ninvertPreview=\"NO\"\ntika_support=\"true\"\n"
                "useCustomQueries=\"false\"\ndownload_all=2\ndirectToPreview=maybe\n"
                "exportFilenameScheme=2024\nimportFilenameScheme=true\nnotification_user_id=7\ncustomHeaders=5\n"
                "defaultCustomView=true\ndownload_saved_view=\"many\"\ncolorScheme=3\n";
    }
    const auto read = [&](const auto& key) {
        return settings::read(*m_defaults, key);
    };
    EXPECT_TRUE(read(settings::useiCloud) && read(settings::offlineMode) && read(settings::tika_support));
    EXPECT_FALSE(read(settings::useNewMenus) || read(settings::invertPreview) || read(settings::useCustomQueries));
    EXPECT_EQ(read(settings::download_all), false) << "2 is no truth value";
    EXPECT_EQ(read(settings::directToPreview), false);
    EXPECT_EQ(read(settings::exportFilenameScheme), "2024");
    EXPECT_EQ(read(settings::importFilenameScheme), "true");
    EXPECT_EQ(read(settings::notification_user_id), "7");
    EXPECT_EQ(read(settings::defaultCustomView), 0);
    EXPECT_EQ(read(settings::download_saved_view), 0);
    EXPECT_EQ(read(settings::colorScheme), StorableColorScheme::system);

    const auto shown = [&](std::string_view name) {
        return settings::displayText(*m_defaults, *settings::find(name));
    };
    EXPECT_EQ(shown("offlineMode"), "true");
    EXPECT_EQ(shown("useNewMenus"), "false");
    EXPECT_EQ(shown("exportFilenameScheme"), "2024");
    EXPECT_EQ(shown("customHeaders"), "<private>");
}

TEST_F(SettingsTest, TheCatalogueNamesEachSettingOnceAndTakesItsOwnDefaults) {
    std::set<std::string_view> names;
    for (const auto& setting : settings::catalogue()) {
        EXPECT_TRUE(names.insert(setting.name).second) << setting.name;
        EXPECT_FALSE(setting.meaning.empty()) << setting.name;
        EXPECT_EQ(settings::find(setting.name), &setting);
        if (setting.access == settings::Access::open) {
            EXPECT_EQ(errorOf(setting.name, setting.defaultText), "stored");
        }
    }
    EXPECT_EQ(names.size(), 39u);
    EXPECT_EQ(settings::find("nothing"), nullptr);
}

TEST_F(SettingsTest, TypedTextsAreCheckedBeforeTheyAreStored) {
    EXPECT_EQ(errorOf("skipSyncOnStartup", "YES"), "stored");
    EXPECT_EQ(settings::read(*m_defaults, settings::skipSyncOnStartup), true);
    EXPECT_EQ(errorOf("skipSyncOnStartup", "maybe"), R"("skipSyncOnStartup" takes true or false, not "maybe".)");
    EXPECT_EQ(settings::read(*m_defaults, settings::skipSyncOnStartup), true) << "a refused text changes nothing";
    EXPECT_EQ(errorOf("download_saved_view", "12"), "stored");
    EXPECT_EQ(settings::read(*m_defaults, settings::download_saved_view), 12);
    for (const char* bad : {"-1", "1.5", "", " 1", "99999999999999999999"})
        EXPECT_EQ(errorOf("download_saved_view", bad),
                  R"("download_saved_view" takes a whole number from 0 upwards, not ")" + std::string(bad) + "\".");
    EXPECT_EQ(errorOf("shareDocumentsVia", "ledgerfinch url"), "stored");
    EXPECT_EQ(errorOf("colorScheme", "blue"), R"("colorScheme" takes "dark", "light" or "system", not "blue".)");
    EXPECT_EQ(errorOf("customAccentColor", "#12aBcd"), "stored");
    EXPECT_EQ(errorOf("customAccentColor", "red"), R"("customAccentColor" takes a colour such as #725BFF, not "red".)");
    EXPECT_EQ(errorOf("exportFilenameScheme", ""), "stored");
    EXPECT_EQ(errorOf("exportFilenameScheme", "a\nb"), R"("exportFilenameScheme" takes a text of one line.)");
    EXPECT_EQ(errorOf("cloudFolder", "/home/me/Sync"), "stored");
    EXPECT_NE(errorOf("cloudFolder", "Sync").find("beginning with a slash"), std::string::npos);
    EXPECT_EQ(errorOf("colourScheme", "dark"), R"(There is no setting "colourScheme".)");
    EXPECT_EQ(errorOf("colorscheme", "dark"), R"(There is no setting "colorscheme". Did you mean "colorScheme"?)");
}

TEST_F(SettingsTest, SecretsAreNeverShownAndManagedSettingsNeverSetByHand) {
    ASSERT_TRUE(
        settings::write(*m_defaults, settings::customHeaders, R"({"https://h":{"headers":["id",{"value":"hush"}]}})"));
    EXPECT_EQ(settings::displayText(*m_defaults, *settings::find("customHeaders")), "<private>");
    ASSERT_TRUE(settings::write(*m_defaults, settings::server, "https://papers.example"));
    EXPECT_EQ(settings::displayText(*m_defaults, *settings::find("server")), "https://papers.example");
    for (const char* name :
         {"customHeaders", "server", "connectedInstances", "offlineMode", "notificationDeviceToken"}) {
        const std::string error = errorOf(name, "true");
        EXPECT_NE(error.find("can't be set by hand"), std::string::npos) << name;
    }
    EXPECT_EQ(settings::read(*m_defaults, settings::server), "https://papers.example");
}

} // namespace
} // namespace ledgerfinch
