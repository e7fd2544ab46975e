// The swinv commands; see Commands.h.
#include "Commands.h"

#include "BaselineCheck.h"
#include "ComponentLog.h"
#include "ComponentSession.h"
#include "FileDecoder.h"
#include "HomeFolder.h"
#include "HostShim.h"
#include "InventoryReply.h"
#include "LibraryLocator.h"
#include "Progress.h"
#include "Render.h"
#include "SettingsMessage.h"
#include "Status.h"
#include "SwinvError.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>

namespace swinv {

namespace {

struct FreeDeleter {
    void operator()(void* block) const { std::free(block); }
};

// Clears the host's command observer when the run is over, however it ends.
class ObserverScope {
public:
    explicit ObserverScope(std::function<void(const char*)> observer) {
        hostshim::SetCommandObserver(std::move(observer));
    }
    ~ObserverScope() { hostshim::SetCommandObserver({}); }
    ObserverScope(const ObserverScope&) = delete;
    ObserverScope& operator=(const ObserverScope&) = delete;
};

void WriteFile(const std::string& path, const void* data, size_t size) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    if (file) file.write(static_cast<const char*>(data), static_cast<std::streamsize>(size));
    if (!file) {
        throw SwinvError("cannot write the reply to " + path + ": " + std::strerror(errno) +
                         "; choose another file for --save-reply");
    }
}

// The reply as the host would send it: its bytes, read back by the host's own message code.
Json DecodeOwnReply(CNDKMessage& reply, const std::string& saveTo) {
    void* raw = nullptr;
    const int length = reply.ToBuffer(&raw);
    std::unique_ptr<void, FreeDeleter> bytes(raw);
    if (!saveTo.empty()) WriteFile(saveTo, raw, static_cast<size_t>(length));
    CNDKMessage received;
    try {
        received.FromBuffer(raw, length);
        return DecodeReply(received, 0);
    } catch (CFileException* e) {
        delete e;
        throw SwinvError("the component's reply cannot be read back from its bytes; host and component disagree "
                         "on the message format: rebuild both from the same sources");
    } catch (const ReplyFormatError& e) {
        throw SwinvError(std::string("the component's reply does not have the inventory layout: ") + e.what() +
                         "; host and component disagree: rebuild both from the same sources");
    }
}

}  // namespace

std::string ChooseLibrary(const GlobalOptions& global) {
    if (!global.library.empty()) {
        struct stat st {};
        if (stat(global.library.c_str(), &st) != 0) {
            throw SwinvError("component library " + global.library + " does not exist: " + std::strerror(errno) +
                             "; check the path given to --library");
        }
        return global.library;
    }
    return LocateLibrary(LibraryCandidates(CurrentExecutable(), global.buildLibrary, global.buildExeDir));
}

namespace {

// Execute sent nothing: the component's own reason when its log is on, else how to get it.
SwinvError NoInventory(int result, const ComponentLog& log) {
    std::vector<std::string> messages = log.NewMessages();
    std::string why;
    // The last two lines: the failure itself, then the run's own "... failed".
    for (size_t i = messages.size() > 2 ? messages.size() - 2 : 0; i < messages.size(); ++i)
        why += (why.empty() ? "" : "; ") + messages[i];
    if (why.empty())
        why = "turn on its log with swinv config 'Logging=\"1\"', run again and read " + log.path();
    else
        why = "its log says: " + why;
    return SwinvError("the component sent no inventory (Execute returned " + std::to_string(result) + "); " + why);
}

// DataSent wrote not every list file: which ones, why, and which were stored.
SwinvError NotStored(const std::vector<std::string>& missed, const std::vector<std::string>& stored,
                     const ComponentLog& log) {
    const std::vector<std::string> messages = log.NewMessages();
    std::string text = "the baseline could not be stored:";
    for (const std::string& file : missed) {
        const std::string why = WhyNotStored(file, messages);
        text += " " + file + ": " + (why.empty() ? "reason unknown (turn on the component's log to see it)" : why) + ";";
    }
    std::string written;
    for (const std::string& file : stored) written += (written.empty() ? "" : ", ") + file;
    return SwinvError(text + (written.empty() ? " nothing was stored" : " stored: " + written));
}

}  // namespace

int RunCommand(const GlobalOptions& global, const RunOptions& options, std::ostream& out) {
    const HomeChoice home = ResolveHome(global.home);
    PrepareHome(home, false);
    const std::string libraryPath = ChooseLibrary(global);
    const ComponentLibrary library = OpenComponentLibrary(libraryPath);

    const bool terminal = isatty(STDERR_FILENO) != 0;
    Progress progress(terminal ? stderr : nullptr, terminal ? CountOutputLines(PackageListCommand()) : 0);
    ObserverScope observe([&progress](const char* command) { progress.OnCommand(command); });

    const unsigned int command = options.full ? 10 : 0;
    const std::string data = home.path + "data/";
    const ComponentLog log(data + "Software.log");
    const std::vector<std::string> lists = {data + "SWList.bin", data + "SWPackage.bin"};
    std::vector<std::string> stored, missed;
    Json decoded;
    {
        ComponentSession session(library, home.path);
        CNDKMessage reply;
        const int result = session.Execute(command, reply);
        progress.Finish(options.full ? "full inventory" : "inventory");
        if (result != 3) throw NoInventory(result, log);
        decoded = DecodeOwnReply(reply, options.saveReply);
        if (options.ack) {
            std::vector<FileState> before;
            for (const std::string& file : lists) before.push_back(StateOf(file));
            session.DataSent(reply);
            for (size_t i = 0; i < lists.size(); ++i)
                (WasReplaced(before[i], StateOf(lists[i])) ? stored : missed).push_back(lists[i]);
        }
    }
    // An acknowledgement counts only when both list files were written.
    const bool acknowledged = options.ack && missed.empty();

    if (global.json) {
        Json report;
        report["kind"] = "reply";
        report["command"] = command;
        report["result"] = 3;
        report["acknowledged"] = acknowledged;
        report["home"] = home.path;
        report["library"] = libraryPath;
        for (auto& [key, value] : decoded.items())
            if (key != "kind") report[key] = value;
        out << DumpJson(report) << "\n";
    } else {
        RenderReply(decoded, out);
        out << "\n";
        if (acknowledged)
            out << "Acknowledged: this inventory is now the stored baseline in " << data << ".\n";
        else if (!options.ack)
            out << "Not acknowledged: the stored baseline is unchanged; 'swinv run --ack' stores this inventory.\n";
        if (!options.saveReply.empty()) out << "Reply saved to " << options.saveReply << ".\n";
    }
    if (!missed.empty()) throw NotStored(missed, stored, log);
    return kExitOk;
}

int ConfigCommand(const GlobalOptions& global, const ConfigOptions& options, std::ostream& out) {
    const auto problems = CheckSettingsRequest(options.text, options.searchPaths);
    if (!problems.empty()) throw SwinvError(problems.front(), kExitUsage);
    for (const auto& key : UnknownKeys(options.text))
        std::cerr << "swinv: note: the component does not read the key " << key << "; it is stored all the same\n";

    const HomeChoice home = ResolveHome(global.home);
    PrepareHome(home, true);
    const std::string libraryPath = ChooseLibrary(global);
    const ComponentLibrary library = OpenComponentLibrary(libraryPath);
    int result = 0;
    {
        ComponentSession session(library, home.path);
        CNDKMessage settings;
        BuildSettingsMessage(settings, options.text, options.searchPaths);
        result = session.SetConfig(settings);
    }

    const Json config = ConfigInEffect(home.path);
    if (global.json) {
        Json report;
        report["kind"] = "config";
        report["result"] = result;
        report["text"] = options.text;
        report["search_paths"] = options.searchPaths;
        report["home"] = home.path;
        report["config"] = config;
        out << DumpJson(report) << "\n";
        return kExitOk;
    }
    out << "Settings merged into " << config["file"].get<std::string>() << "; in effect now:\n";
    for (const auto& item : config["settings"]) {
        out << "  " << item["key"].get<std::string>() << "=\"" << item["value"].get<std::string>() << "\""
            << (item["from"] == "default" ? "  (default)" : "") << "\n";
    }
    for (const auto& [key, value] : config["other_keys"].items())
        out << "  " << key << "=\"" << value.get<std::string>() << "\"  (not read by the component)\n";
    if (!options.searchPaths.empty())
        out << options.searchPaths.size() << " search path(s) written to " << home.path << "data/swsearch.bin\n";
    return kExitOk;
}

int ShowCommand(const GlobalOptions& global, const ShowOptions& options, std::ostream& out) {
    if (options.skip < 0) throw SwinvError("--skip needs a count of 0 or more", kExitUsage);
    const Json decoded = DecodeFile(options.file, options.skip);
    if (global.json)
        out << DumpJson(decoded) << "\n";
    else
        RenderFile(decoded, out);
    return kExitOk;
}

int StatusCommand(const GlobalOptions& global, std::ostream& out, std::time_t now) {
    const HomeChoice home = ResolveHome(global.home);
    PrepareHome(home, false);
    std::string library;
    try {
        library = ChooseLibrary(global);
    } catch (const SwinvError& e) {
        library = std::string("not found: ") + e.what();
    }
    const Json status = CollectStatus(home, library, now);
    if (global.json)
        out << DumpJson(status) << "\n";
    else
        RenderStatus(status, out);
    return kExitOk;
}

}  // namespace swinv
