// SPDX-License-Identifier: Apache-2.0
// All that is reached by a signal's handler calls nothing that allocates or locks: a crash may come anywhere.
#include "crashline.h"

#include "lastwords.h"

#include <atomic>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstring>

#include <fcntl.h>
#include <ucontext.h>
#include <unistd.h>

namespace {

struct Crash
{
    int number;
    const char *text;
};
constexpr Crash crashes[] = {{SIGSEGV, "Segmentation fault"}, {SIGABRT, "Aborted"},
                             {SIGBUS, "Bus error"},           {SIGFPE, "Floating point exception"},
                             {SIGILL, "Illegal instruction"}, {SIGTRAP, "Trace/breakpoint trap"}};

alignas(16) char handlerStack[64 << 10];
char pluginFolder[PATH_MAX]; // with a slash at its end; empty if there is none
std::atomic_flag isTelling = ATOMIC_FLAG_INIT;

struct Range
{
    uintptr_t start = 0, end = 0;
    bool contains(uintptr_t address) const { return address >= start && address < end; }
};

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

/// What is mapped into the process, range by range.
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
    const char *path() const { return m_path; } // empty if it is no file's
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

/// Where a thread was.
struct Registers
{
    uintptr_t instruction = 0, stack = 0;

    explicit Registers(const void *context)
    {
        const mcontext_t &machine = static_cast<const ucontext_t *>(context)->uc_mcontext;
#if defined(__x86_64__)
        instruction = static_cast<uintptr_t>(machine.gregs[REG_RIP]);
        stack = static_cast<uintptr_t>(machine.gregs[REG_RSP]);
#elif defined(__aarch64__)
        instruction = machine.pc;
        stack = machine.sp;
#else
        Q_UNUSED(machine) // then only what is being loaded is told
#endif
    }
};

/// The word at an address, also where a sanitizer has put a guard between two variables.
__attribute__((no_sanitize("address", "thread"))) uintptr_t readStack(uintptr_t word)
{
    return *reinterpret_cast<const volatile uintptr_t *>(word); // NOLINT: a number to the system
}

/// A place in the code of a plugin: where the thread was, or else where something on its stack points; 0 if nowhere.
uintptr_t placeInPlugins(const Registers &registers)
{
    constexpr int MaxRanges = 256;
    constexpr uintptr_t MaxDepth = 256 << 10;
    static Range plugins[MaxRanges];
    int count = 0;
    Range stack;
    for (Maps maps; maps.next();) {
        if (maps.range().contains(registers.stack))
            stack = {registers.stack & ~(sizeof(uintptr_t) - 1), maps.range().end};
        if (maps.isCode() && maps.isPlugin() && count < MaxRanges)
            plugins[count++] = maps.range();
    }
    const auto isInPlugin = [&](uintptr_t address) {
        for (int i = 0; i < count; ++i) {
            if (plugins[i].contains(address))
                return true;
        }
        return false;
    };
    if (isInPlugin(registers.instruction))
        return registers.instruction;
    for (uintptr_t word = stack.start; word < stack.end && word < stack.start + MaxDepth; word += sizeof word) {
        if (const uintptr_t address = readStack(word); isInPlugin(address))
            return address;
    }
    return 0;
}

/// Adds " in FILE+0xOFFSET", and sets `file`, where the address lies in a file's code.
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

const char *textOf(int number)
{
    for (const Crash &crash : crashes) {
        if (crash.number == number)
            return crash.text;
    }
    return "a signal";
}

void tell(int number, const Registers &registers)
{
    static FixedText line, file; // too large for the stack that is left
    freeDescriptor();
    line.add("zhost: ended by ");
    line.add(textOf(number));
    const uintptr_t place = placeInPlugins(registers);
    addPlace(&line, &file, place ? place : registers.instruction);
    addLoading(&line);
    line.add("\n");
    line.writeTo(STDERR_FILENO);
    noteEnd(file.data(), line.data() + std::strlen("zhost: "));
}

void handle(int number, siginfo_t *info, void *context)
{
    if (isTelling.test_and_set()) { // another thread was first: it ends the process
        for (;;)
            pause();
    }
    tell(number, Registers(context));
    std::signal(number, SIG_DFL);
    // What comes back to its instruction by itself leaves the better core. What was sent does not, nor does a trap,
    // which would go on behind it.
    if (info->si_code <= 0 || number == SIGTRAP)
        raise(number);
}

} // namespace

void sayWhatCrashes()
{
    keepDescriptors();
    stack_t stack = {};
    stack.ss_sp = handlerStack;
    stack.ss_size = sizeof handlerStack;
    sigaltstack(&stack, nullptr);
    struct sigaction action = {};
    action.sa_sigaction = handle;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    for (const Crash &crash : crashes)
        sigaddset(&action.sa_mask, crash.number);
    for (const Crash &crash : crashes) {
        struct sigaction before = {};
        sigaction(crash.number, nullptr, &before);
        if (before.sa_handler == SIG_DFL)
            sigaction(crash.number, &action, nullptr);
    }
}

void lookForPluginsIn(const QString &folder)
{
    copyPath(pluginFolder, folder.isEmpty() ? folder : folder + QLatin1Char('/'));
}
