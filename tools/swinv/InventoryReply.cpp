// Inventory reply decoding; see InventoryReply.h.
#include "InventoryReply.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

namespace swinv {

namespace {

// A map block larger than this is a corrupt length, not an inventory.
constexpr unsigned int kMaxBlockBytes = 512u * 1024u * 1024u;
// Worst case of the deflate format: one compressed byte inflates to at most 1032.
constexpr unsigned long long kMaxInflateRatio = 1032;

struct FreeDeleter {
    void operator()(unsigned char* block) const { std::free(block); }
};

// Walks the message with its own cursor, checking each element's type first.
class ReplyReader {
public:
    explicit ReplyReader(CNDKMessage& message) : m_message(message) {}

    std::string String(const char* what) {
        Expect(m_message.GetCurrentIndex(), NDKString, what);
        std::string value;
        m_message.GetNext(value);
        return value;
    }

    unsigned int UInt(const char* what) {
        Expect(m_message.GetCurrentIndex(), NDKUInt, what);
        unsigned int value = 0;
        m_message.GetNext(value);
        return value;
    }

    bool Flag(const char* what) {
        Expect(m_message.GetCurrentIndex(), NDKShort, what);
        short value = 0;
        m_message.GetNext(value);
        return value != 0;
    }

    // Length element, then the block (hidden length + buffer), decoded as an inventory map.
    Json Map(const std::string& what) {
        const unsigned int length = UInt((what + " length").c_str());
        const int index = m_message.GetCurrentIndex();
        Expect(index, NDKUInt, (what + " block header").c_str());
        Expect(index + 1, NDKBuffer, (what + " block").c_str());
        unsigned int header = 0;
        m_message.GetAt(index, header);
        const unsigned int stored = m_message.GetElements().GetAt(index + 1).GetDataBuffer().GetLength();
        // A length its block cannot inflate to is refused before a buffer of that length is made.
        const bool fits = header == 0 ? stored == length : header == stored && length <= stored * kMaxInflateRatio;
        if (length > kMaxBlockBytes || !fits) {
            throw ReplyFormatError(what + ": the block's lengths do not agree (" + std::to_string(length) +
                                   " bytes announced, " + std::to_string(stored) + " stored)");
        }
        std::vector<unsigned char> bytes(length ? length : 1, 0);
        m_message.GetNext(bytes.data(), length);

        CInvMap map;
        if (length != 0 && !map.FromMemory(bytes.data(), static_cast<int>(length))) {
            throw ReplyFormatError(what + ": the block is not an inventory map");
        }
        // Host and component must agree on every byte of the map format.
        unsigned char* again = nullptr;
        const int againLength = map.ToMemory(&again);
        std::unique_ptr<unsigned char, FreeDeleter> guard(again);
        if (static_cast<unsigned int>(againLength) != length ||
            (length != 0 && std::memcmp(again, bytes.data(), length) != 0)) {
            throw ReplyFormatError(what + ": the block does not encode back to the same bytes");
        }
        return MapToJson(map);
    }

    void ExpectEnd() {
        const int index = m_message.GetCurrentIndex();
        const int total = m_message.GetElements().GetSize();
        if (index < total) {
            throw ReplyFormatError(std::to_string(total - index) + " unexpected element(s) after the inventory");
        }
    }

private:
    void Expect(int index, int code, const char* what) {
        if (!m_message.IsValidGetIndex(index)) {
            throw ReplyFormatError(std::string("the message ends before the ") + what + " (element " +
                                   std::to_string(index) + ")");
        }
        const int actual = m_message.GetDataTypeAt(index);
        if (actual != code) {
            throw ReplyFormatError(std::string("element ") + std::to_string(index) + " should be the " + what +
                                   " (" + ElementTypeName(code) + ") but is a " + ElementTypeName(actual));
        }
    }

    CNDKMessage& m_message;
};

}  // namespace

const char* ElementTypeName(int code) {
    static const char* const names[] = {"uchar", "char",   "ushort", "short",  "uint",   "int",   "reserved6",
                                        "reserved7", "float", "double", "string", "buffer", "uint64"};
    if (code < 0 || code >= static_cast<int>(sizeof names / sizeof names[0])) return "unknown";
    return names[code];
}

Json DecodeReply(CNDKMessage& message, int skip) {
    if (skip < 0 || skip > message.GetElements().GetSize()) {
        throw ReplyFormatError("cannot skip " + std::to_string(skip) + " elements of a message of " +
                               std::to_string(message.GetElements().GetSize()));
    }
    message.ResetCurrentIndex();
    for (int i = 0; i < skip; ++i) message.AdvanceCurrIndex();

    ReplyReader reader(message);
    Json reply;
    reply["kind"] = "reply";
    reply["scan_time"] = reader.String("scan time");
    Json software;
    software["added"] = reader.Map("software added");
    software["deleted"] = reader.Map("software deleted");
    software["changed"] = reader.Map("software changed");
    software["reserved"] = reader.Map("software reserved");
    software["baseline_missing"] = reader.Flag("software no-baseline flag");
    Json packages;
    packages["added"] = reader.Map("packages added");
    packages["deleted"] = reader.Map("packages deleted");
    packages["changed"] = reader.Map("packages changed");
    packages["baseline_missing"] = reader.Flag("package no-baseline flag");
    reader.ExpectEnd();
    reply["software"] = std::move(software);
    reply["packages"] = std::move(packages);
    return reply;
}

}  // namespace swinv
