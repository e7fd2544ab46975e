// The settings message a server sends the component: the length L of the
// settings text, the text with its terminating NUL as one compressed block of L
// bytes, one string per extra search path, and an empty string to close the list.
#pragma once

#include "message/NDKMessage.h"

#include <string>
#include <vector>

namespace swinv {

// The keys the component reads, in the order people think of them, with their defaults.
struct SettingKey {
    const char* name;
    const char* defaultValue;
    const char* meaning;
};
const std::vector<SettingKey>& KnownSettings();

// Appends the settings layout to `message`.
void BuildSettingsMessage(CNDKMessage& message, const std::string& text, const std::vector<std::string>& searchPaths);

// Usage problems of a config request, one line each; empty when it can be sent.
// Keys the component does not read are not problems (they are stored as well).
std::vector<std::string> CheckSettingsRequest(const std::string& text, const std::vector<std::string>& searchPaths);

// Keys of `text` that the component does not read.
std::vector<std::string> UnknownKeys(const std::string& text);

}  // namespace swinv
