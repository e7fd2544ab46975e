// Component folders below the host's home path. The home path is expected to end
// with a separator; it is used as given.
#include "component/FolderInfo.h"

std::string FolderInfo::getFolder(const std::string& home, int code) {
    switch (code) {
    case Lib:
        return home + "lib/";
    case Home:
        return home;
    case Lists:
    case Data:
        return home + "data/";
    case Bin:
        return home + "bin/";
    case Gui:
        return home + "gui/";
    default:
        return std::string();
    }
}
