// Tables of {output, records} for the snap and flatpak list parsers, and of the "Sources" values.
#include "collector/ExtraSources.h"

#include <gtest/gtest.h>

using namespace extrasources;

namespace {

// "name|version|company|summary" per record, then "skipped: line" per skipped line, each ended by ";".
std::string Shown(const SourceList& list) {
    std::string shown;
    for (const SourceRecord& r : list.records) shown += r.name + "|" + r.version + "|" + r.company + "|" + r.summary + ";";
    for (const std::string& line : list.skipped) shown += "skipped: " + line + ";";
    return shown;
}

}  // namespace

TEST(ExtraSources, SnapListLines) {
    const std::string header = "Name     Version   Rev   Tracking       Publisher    Notes\n";
    const std::pair<std::string, std::string> outputs[] = {
        {"", ""}, {header, ""}, {header + "\n   \n", ""},
        {header + "zevnotes  128.0.3-1  4650  latest/stable  zevsoft**  -\n", "zevnotes|128.0.3-1|zevsoft|Snap package;"},
        {header + "zevbase 20240111 1122 latest/stable zevcore* base", "zevbase|20240111|zevcore|Snap package;"},
        {header + "zev-2-notes-3  2.10+git~1  42  latest/edge  -  devmode   \t\n", "zev-2-notes-3|2.10+git~1||Snap package;"},
        {header + "mine\t0.1~rc1\tx1\t-\tme***\tdisabled,classic\n", "mine|0.1~rc1|me|Snap package;"},
        {header + "broken  1.0  12  latest/stable  someone\nok 1 2 - p -\n", "ok|1|p|Snap package;skipped: broken  1.0  12  latest/stable  someone;"},
        {"zevnotes  128.0.3-1  4650  latest/stable  zevsoft**  -\n", ""}};   // the first line is always the header
    for (const auto& [output, expected] : outputs) EXPECT_EQ(expected, Shown(ParseSnapList(output))) << output;
}

TEST(ExtraSources, FlatpakListLines) {
    const std::pair<std::string, std::string> outputs[] = {
        {"", ""}, {"\n\n", ""},
        {"org.zev.Notes\t128.0.3\tstable\tzev-apps\tNotes\n", "org.zev.Notes|128.0.3|zev-apps|Notes;"},
        {"org.zev.Hello\t\tstable\tzev-local\tHello", "org.zev.Hello|stable|zev-local|Hello;"},
        {"org.zev.Boxes\t46.1~beta+2\tstable\tzev-apps\tBoxes  \t\n", "org.zev.Boxes|46.1~beta+2|zev-apps|Boxes;"},
        {"org.zev.Bare\t\t\t\t\n", "org.zev.Bare|||;"},
        {"org.zev.Short\t1.0\tstable\tzev-apps\n\t1\tstable\tzev-apps\tNo ID\nok\t1\tb\to\tOK\n",
         "ok|1|o|OK;skipped: org.zev.Short\t1.0\tstable\tzev-apps;skipped: \t1\tstable\tzev-apps\tNo ID;"}};
    for (const auto& [output, expected] : outputs) EXPECT_EQ(expected, Shown(ParseFlatpakList(output))) << output;
}

TEST(ExtraSources, SourcesSetting) {
    const std::pair<std::string, std::string> settings[] = {   // value, "selected|unknown"
        {"", "|"}, {"snap|flatpak", "snap,flatpak|"}, {" flatpak | snap |flatpak|", "flatpak,snap|"},
        {"snap|rpmfusion||Snap", "snap|rpmfusion,Snap"}, {"snap flatpak", "|snap flatpak"}};
    for (const auto& [value, expected] : settings) {
        std::vector<std::string> unknown;
        std::string shown;
        for (const Source* source : SelectSources(value, unknown)) shown += (shown.empty() ? "" : ",") + std::string(source->name);
        shown += "|";
        for (size_t i = 0; i < unknown.size(); ++i) shown += (i ? "," : "") + unknown[i];
        EXPECT_EQ(expected, shown) << value;
    }
}
