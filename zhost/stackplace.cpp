// SPDX-License-Identifier: Apache-2.0
// No function here allocates or locks, but for those that take a QString: a crash may come anywhere.
#include "stackplace.h"

#include "lastwords.h"

#include <climits>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

namespace {

char pluginFolder[PATH_MAX]; // with a slash at its end; empty if there is none

const char *parseHex(const char *text, uintptr_t *number)
{
    *number = 0;
    for (;; ++text) {
        const char *digits = "0123456789abcdef";
        const char *digit = *text ? std::strchr(digits, *text) : nullptr;
        if (!digit)
            return text;
        *number = *number * 16 + static_cast<uintptr_t>(digit - digits);
    }
}

/// The ranges of memory that are mapped into the process.
class Maps
{
public:
    Maps() : m_descriptor(open("/proc/self/maps", O_RDONLY | O_CLOEXEC)) {}
    ~Maps() { close(m_descriptor); }

    /// Goes on to the next range; false after the last.
    bool next()
    {
        char line[PATH_MAX + 128] = {};
        if (!readLine(line, sizeof line))
            return false;
        const char *rest = parseHex(line, &m_range.start);
        rest = parseHex(rest + 1, &m_range.end);
        m_isCode = std::strlen(rest) > 3 && rest[3] == 'x';
        const char *path = std::strchr(rest, '/');
        if (std::strcmp(path ? path : "", m_path) != 0)
            m_base = m_range.start;
        std::strncpy(m_path, path ? path : "", sizeof m_path - 1);
        return true;
    }

    Range range() const { return m_range; }
    const char *path() const { return m_path; } // empty if it is not from a file
    uintptr_t base() const { return m_base; }   // where the file begins
    bool isCode() const { return m_isCode && m_path[0]; }
    bool isPlugin() const
    {
        return pluginFolder[0] && std::strncmp(m_path, pluginFolder, std::strlen(pluginFolder)) == 0;
    }

private:
    Q_DISABLE_COPY(Maps)

    bool readLine(char *line, size_t size)
    {
        size_t length = 0;
        for (char letter; readLetter(&letter);) {
            if (letter == '\n')
                return true;
            if (length + 1 < size)
                line[length++] = letter;
        }
        return false;
    }
    bool readLetter(char *letter)
    {
        if (m_position == m_end) {
            m_position = 0;
            m_end = read(m_descriptor, m_buffer, sizeof m_buffer);
            if (m_end <= 0) {
                m_end = 0;
                return false;
            }
        }
        *letter = m_buffer[m_position++];
        return true;
    }

    const int m_descriptor;
    char m_buffer[1024];
    ssize_t m_position = 0, m_end = 0;
    Range m_range;
    bool m_isCode = false;
    char m_path[PATH_MAX] = {};
    uintptr_t m_base = 0;
};

/// The word at an address of the stack. A sanitizer must not stop this: it puts guards between variables.
__attribute__((no_sanitize("address", "thread"))) uintptr_t readStack(uintptr_t word)
{
    return *reinterpret_cast<const volatile uintptr_t *>(word); // NOLINT: a number to the system
}

} // namespace

bool CodeRanges::contain(uintptr_t address) const
{
    for (int i = 0; i < count; ++i) {
        if (ranges[i].contains(address))
            return true;
    }
    return false;
}

uintptr_t placeInPlugins(const Registers &registers, CodeRanges *room)
{
    constexpr uintptr_t MaxDepth = 256 << 10;
    room->count = 0;
    Range stack;
    for (Maps maps; maps.next();) {
        if (maps.range().contains(registers.stack))
            stack = {registers.stack & ~(sizeof(uintptr_t) - 1), maps.range().end};
        if (maps.isCode() && maps.isPlugin() && room->count < CodeRanges::Max)
            room->ranges[room->count++] = maps.range();
    }
    if (room->contain(registers.instruction))
        return registers.instruction;
    for (uintptr_t word = stack.start; word < stack.end && word < stack.start + MaxDepth; word += sizeof word) {
        if (const uintptr_t address = readStack(word); room->contain(address))
            return address;
    }
    return 0;
}

void addPlace(FixedText *line, FixedText *file, uintptr_t address)
{
    for (Maps maps; maps.next();) {
        if (!maps.range().contains(address) || !maps.isCode())
            continue;
        file->add(maps.path());
        line->add(" in ");
        line->add(maps.path());
        line->add("+0x");
        line->addHex(address - maps.base());
        return;
    }
}

void lookForPluginsIn(const QString &folder)
{
    copyPath(pluginFolder, folder.isEmpty() ? folder : folder + QLatin1Char('/'));
}
