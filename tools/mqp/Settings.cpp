#include "Settings.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>

namespace {

std::string trimmed(const std::string& text)
{
    const char* blanks = " \t\r\n";
    const size_t first = text.find_first_not_of(blanks);
    if (first == std::string::npos)
        return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

bool parsePositive(const std::string& text, int limit, int* value)
{
    if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos)
        return false;
    errno = 0;
    const long number = std::strtol(text.c_str(), nullptr, 10);
    if (errno != 0 || number <= 0 || number > limit)
        return false;
    *value = static_cast<int>(number);
    return true;
}

} // namespace

std::optional<ConversionSettings> readConversionSettings(const std::string& path, std::string* error)
{
    std::ifstream in(path);
    if (!in) {
        *error = "cannot read settings file \"" + path + "\": " + std::strerror(errno);
        return std::nullopt;
    }
    ConversionSettings settings;
    bool formatGiven = false;
    std::string line;
    int lineNumber = 0;
    while (std::getline(in, line)) {
        ++lineNumber;
        line = trimmed(line);
        if (line.empty() || line[0] == '#')
            continue;
        const size_t equals = line.find('=');
        const std::string where = path + ":" + std::to_string(lineNumber) + ": ";
        if (equals == std::string::npos) {
            *error = where + "expected key=value";
            return std::nullopt;
        }
        const std::string key = trimmed(line.substr(0, equals));
        const std::string value = trimmed(line.substr(equals + 1));
        bool ok = true;
        if (key == "format") {
            formatGiven = true;
            if (value == "wav")
                settings.format = ConversionSettings::Format::Wav;
            else if (value == "aac")
                settings.format = ConversionSettings::Format::Aac;
            else
                ok = false;
        } else if (key == "rate") {
            ok = parsePositive(value, 768000, &settings.sampleRate);
        } else if (key == "channels") {
            ok = parsePositive(value, 8, &settings.channels);
        } else if (key == "bitrate") {
            ok = parsePositive(value, 1024, &settings.bitrateKbps);
        } else {
            *error = where + "unknown key \"" + key + "\"";
            return std::nullopt;
        }
        if (!ok) {
            *error = where + "bad value \"" + value + "\" for \"" + key + "\"";
            return std::nullopt;
        }
    }
    if (!formatGiven) {
        *error = path + ": no format given";
        return std::nullopt;
    }
    if (settings.format == ConversionSettings::Format::Aac && settings.bitrateKbps == 0) {
        *error = path + ": an AAC setting needs a bitrate";
        return std::nullopt;
    }
    return settings;
}
