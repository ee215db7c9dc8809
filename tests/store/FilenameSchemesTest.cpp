// SPDX-License-Identifier: GPL-3.0-or-later
#include "store/FilenameSchemes.h"

#include <gtest/gtest.h>

namespace ledgerfinch {
namespace {

TEST(StoreNames, KeepOnlyWhatFileNamesTake) {
    EXPECT_EQ(sanitizedForFileName("https://paper.example:8443"), "httpspaper.example8443");
    EXPECT_EQ(sanitizedForFileName("a\\b/c:d*e?f\"g<h>i|j"), "abcdefghij");
    EXPECT_EQ(sanitizedForFileName("a\r\nb\xE2\x80\xA8"
                                   "c\x7F\xC2\xAD\xE2\x80\xAE"),
              "abc")
        << "breaks, control, format";
    EXPECT_EQ(sanitizedForFileName("x\xEF\xB7\x90\xF4\x8F\xBF\xBFy"), "xy") << "no characters at all";
    EXPECT_EQ(sanitizedForFileName("schön \xF0\x9F\x93\x84"), "schön \xF0\x9F\x93\x84");
}

TEST(StoreNames, TwoServersNeverShareAStore) {
    std::set<std::string> taken;
    for (const char* address : {"https://a.example", "https://A.example", "https:a.example", "httpsa.example-2"}) {
        const auto name = storeNameFor(address, taken);
        EXPECT_TRUE(isStoreName(name)) << name;
        EXPECT_TRUE(taken.insert(name).second);
    }
    EXPECT_EQ(taken,
              (std::set<std::string>{"httpsa.example", "httpsA.example-2", "httpsa.example-3", "httpsa.example-2-2"}));
}

TEST(StoreNames, NoServerGetsAStoreThatIsNobodys) {
    EXPECT_EQ(storeNameFor("Ledgerfinch", {}), "Ledgerfinch-2");
    EXPECT_EQ(storeNameFor("ledger/FINCH", {"ledgerfinch-2"}), "ledgerFINCH-3");
    EXPECT_EQ(storeNameFor("Ledgerfinch-Queries", {}), "Ledgerfinch-Queries-2");
    EXPECT_EQ(storeNameFor("..//.hidden", {}), "hidden");
    EXPECT_EQ(storeNameFor("://", {}), "server");
    const auto longest = storeNameFor("https://" + std::string(199, 'a') + "\xC3\xA4" + std::string(300, 'b'), {});
    EXPECT_LE(longest.size(), 200U);
    EXPECT_TRUE(isStoreName(longest));
    EXPECT_TRUE(isStoreName(storeNameFor(std::string(194, 'a') + "\xC3\xA4\xC3\xA4\xC3\xA4\xC3\xA4", {})));
}

TEST(StoreNames, AreNeverPaths) {
    for (const char* name : {"", ".", "..", "../other", "/etc/passwd", "a/b", ".hidden", "a\nb", "\xFF"})
        EXPECT_FALSE(isStoreName(name)) << name;
    EXPECT_FALSE(isStoreName(std::string("a\0b", 3)));
    EXPECT_FALSE(isStoreName(std::string(300, 'a')));
    EXPECT_TRUE(isStoreName("httpspaper.example8443"));
}

} // namespace
} // namespace ledgerfinch
