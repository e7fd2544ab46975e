// Folder codes below the home path.
#include "component/FolderInfo.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <utility>
#include <vector>

TEST(FolderInfo, CodeTable) {
    const std::vector<std::pair<int, std::string>> cases = {
        {1, "/x/lib/"}, {2, "/x/"},  {7, "/x/data/"}, {8, "/x/bin/"}, {9, "/x/data/"}, {10, "/x/gui/"},
        {0, ""},        {3, ""},     {4, ""},         {5, ""},        {6, ""},         {11, ""},
        {-1, ""},       {INT_MIN, ""}, {INT_MAX, ""},
    };
    for (const auto& c : cases) EXPECT_EQ(FolderInfo::getFolder("/x/", c.first), c.second) << "code " << c.first;

    // The home path is used as given, separator or not.
    EXPECT_EQ(FolderInfo::getFolder("", 9), "data/");
    EXPECT_EQ(FolderInfo::getFolder("", 2), "");
    EXPECT_EQ(FolderInfo::getFolder("/x", 8), "/xbin/");
}
