// Component folders below the host's home path, by numeric folder code.
#pragma once

#include <string>

class FolderInfo {
public:
    enum Code { Lib = 1, Home = 2, Lists = 7, Bin = 8, Data = 9, Gui = 10 };
    // home + the code's suffix; empty for an unknown code. Codes 7 and 9 are the same
    // folder on purpose: lists use 7, configuration and log use 9.
    static std::string getFolder(const std::string& home, int code);
};
