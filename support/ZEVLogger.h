// Appends time-stamped lines to one diagnostic log file, opening and closing it
// for every line so that no descriptor is held between lines.
#pragma once

#include <cstdarg>
#include <string>

class CZEVLogger {
public:
    CZEVLogger();
    explicit CZEVLogger(const std::string& fileName);
    ~CZEVLogger() = default;

    void setFile(std::string fileName);
    bool isLogging() const { return m_logging; }
    // printf-style; one line "dd/mm/yy HH:MM:SS  <text>\n", the text cut at 511 characters.
    void log(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void logVA(const char* format, va_list arguments);

private:
    std::string m_fileName;
    bool m_logging = true;
};
