// What an install service's state words mean for a package's progress, and the overall percent
// the core application shows.
#include <gtest/gtest.h>

#include "provision/install_status.h"

namespace {

TEST(InstallStatus, StateWordsGiveCodeAndTablePercent) {
    struct Case {
        const char *state, *progress;
        InstallStatusCode code;
        unsigned percent; // of a lone package, as the overall percent shows it
    } cases[] = {
        {"ipk download current", "50", INSTALL_DOWNLOADING, 46},
        {"ipk download current", "3", INSTALL_DOWNLOADING, 4},
        {"ipk download current", "100", INSTALL_DOWNLOADING, 92},
        {"icon download failed", "", INSTALL_FAILED, 100}, // the end decides first
        {"IconDownloading", "70", INSTALL_ICON, 2},
        {"installing", "", INSTALL_ACTIVE, 95},
        {"installed", "", INSTALL_DONE, 100},
        {"download canceled", "10", INSTALL_CANCELED, 100},
        {"download paused", "10", INSTALL_PAUSED, 0},
        {"REMOVING", "", INSTALL_REMOVING, 0},
        {"Removed", "", INSTALL_REMOVED, 0},
        {"queued", "", INSTALL_DONE, 100},
        {"waiting", "", INSTALL_ACTIVE, 95},
        {"something else", "", INSTALL_UNKNOWN, 0},
        {"", "5", INSTALL_INVALID, 0},
    };
    for (const Case &c : cases) {
        resetDownloadFileProgress();
        addToInstallProgressTable("com.acme.p", 1000);
        unsigned progress = 0;
        InstallStatusCode code = getStatusInstallService(c.state, c.progress, &progress);
        EXPECT_EQ(code, c.code) << c.state;
        updateInstallProgressTable("com.acme.p", code, progress);
        EXPECT_EQ(computeInstallPercent(), c.percent) << c.state;
    }
    EXPECT_EQ(getStatusInstallService("installed", nullptr, nullptr), INSTALL_INVALID);
}

TEST(InstallStatus, OverallPercentWeighsBySizeAndStaysInRangeOnLargeSizes) {
    addToInstallProgressTable("com.acme.small", 1000000);
    addToInstallProgressTable("com.acme.large", 3000000);
    EXPECT_EQ(computeInstallPercent(), 0u);
    updateInstallProgressTable("com.acme.small", INSTALL_DONE, 100);
    updateInstallProgressTable("com.acme.large", INSTALL_DOWNLOADING, 55); // 50 in the table
    EXPECT_EQ(computeInstallPercent(), 62u);
    // Entries beyond the first ten grow the table; ids too long or sizes of 0 are refused.
    for (int i = 0; i < 12; i++)
        addToInstallProgressTable(("com.acme.more" + std::to_string(i)).c_str(), 1);
    addToInstallProgressTable(std::string(256, 'x').c_str(), 5);
    addToInstallProgressTable("com.acme.empty", 0);
    EXPECT_FALSE(updateInstallProgressTable(std::string(256, 'x').c_str(), INSTALL_DONE, 0));
    EXPECT_FALSE(updateInstallProgressTable("com.acme.empty", INSTALL_DONE, 0));
    EXPECT_TRUE(updateInstallProgressTable("com.acme.more11", INSTALL_DONE, 0));
    // All but the last byte is all: the bar reaches its end.
    resetDownloadFileProgress();
    addToInstallProgressTable("com.acme.big", 999);
    addToInstallProgressTable("com.acme.byte", 1);
    updateInstallProgressTable("com.acme.big", INSTALL_DONE, 100);
    EXPECT_EQ(computeInstallPercent(), 100u);
}

} // namespace
