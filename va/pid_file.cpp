#include "va/pid_file.h"

#include "ipc/network/fd.h"
#include "util/util.h"
#include "va/paths.h"
#include "va/process.h"

#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <string>
#include <string_view>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

namespace
{

// In the place of a process number.
constexpr pid_t nobody = 0;
constexpr pid_t unknown = -1; // there is a file, but it cannot be read

bool pid_file_written = false;

// Whether there is anything; a link counts, wherever it leads.
bool exists(const char *path)
{
    struct stat status;
    return lstat(path, &status) == 0;
}

bool is_alive(pid_t process)
{
    return kill(process, 0) == 0 || errno != ESRCH;
}

bool is_regular(const Fd &file)
{
    struct stat status;
    return fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode);
}

// The process that one decimal number and nothing else names. The kill command is handed the very
// text, so neither an option nor a second number may pass.
pid_t parse_process(std::string_view text)
{
    if (text.ends_with('\n'))
        text.remove_suffix(1);
    pid_t process = nobody;
    const char *const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, process);
    return error == std::errc() && stop == end && process > 0 ? process : nobody;
}

pid_t recorded_process()
{
    const Fd file(open(va_pid_path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!file)
        return errno == ELOOP || errno == ENXIO ? nobody : unknown; // a link, a socket
    if (!is_regular(file))
        return nobody;
    char text[32];
    const ssize_t length = read(file.get(), text, sizeof text);
    if (length < 0)
        return unknown;
    const std::size_t size = static_cast<std::size_t>(length);
    return size < sizeof text ? parse_process({text, size}) : nobody;
}

// `text` as one word of a shell command.
std::string shell_word(std::string_view text)
{
    constexpr std::string_view plain = "abcdefghijklmnopqrstuvwxyz"
                                       "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789/._-+";
    if (text.find_first_not_of(plain) == std::string_view::npos)
        return std::string(text);
    std::string word = "'";
    for (const char letter : text)
        word += letter == '\'' ? std::string("'\\''") : std::string(1, letter);
    return word + "'";
}

void send_sigterm()
{
    const std::string command = "cat " + shell_word(va_pid_path) + " | xargs kill ";
    [[maybe_unused]] const int status = std::system(command.c_str());
}

// Asks an instance to stop, if it is known, and gives it a second.
void wait_for(pid_t process)
{
    syslog(LOG_ERR, "==> Warning: Old process is not stop. Waiting now.");
    if (process > 0)
        send_sigterm();
    sleep(1);
    if (terminate)
        std::exit(0);
}

// Whether the file that told of `process` a second ago tells of no living instance.
bool is_stale(pid_t process)
{
    if (!exists(va_pid_path) || recorded_process() != process || process == unknown)
        return false;
    return process == nobody || !is_alive(process);
}

bool remove_stale_file()
{
    const bool removed = unlink(va_pid_path) == 0;
    syslog(LOG_ERR, "%s is stale: it names no other process. %s", va_pid_path,
           removed ? "Removed it." : "It cannot be removed.");
    return removed;
}

// file_printf() follows links and leaves the mode to the umask. So a regular file, which only its
// owner may write, is seen to beforehand. Returns false when something else is in the way.
bool prepare_pid_file()
{
    constexpr mode_t not_writable_for_others = 0755;
    const Fd file(
        open(va_pid_path, O_RDONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0644));
    if (!file && errno != ELOOP)
        return true; // file_printf() will fail, and say so
    struct stat status;
    if (!file || fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        syslog(LOG_ERR, "%s is no regular file: no PID file is written.", va_pid_path);
        return false;
    }
    fchmod(file.get(), status.st_mode & not_writable_for_others);
    return true;
}

int write_pid_file()
{
    if (!prepare_pid_file())
        return -1;
    const int result = file_printf(va_pid_path, "%d", getpid());
    pid_file_written = result == 0;
    return result;
}

} // namespace

int create_pid_file()
{
    if (terminate)
        std::exit(0);
    while (exists(va_pid_path)) {
        const pid_t old = recorded_process();
        // Left by a process of an earlier boot; signalling it would end this one.
        const bool own_number = old == getpid();
        if (!own_number)
            wait_for(old);
        if ((own_number || is_stale(old)) && !remove_stale_file())
            break;
    }
    return write_pid_file();
}

void remove_own_pid_file()
{
    if (pid_file_written)
        unlink(va_pid_path);
}
