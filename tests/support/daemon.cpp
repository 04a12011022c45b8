#include "tests/support/daemon.h"

#include "tests/support/firmware.h"
#include "tests/support/wait.h"

#include <csignal>
#include <cstring>
#include <fstream>
#include <sstream>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

int occurrences(const std::string &text, const std::string &wanted)
{
    if (wanted.empty())
        return 1;
    int count = 0;
    for (std::size_t at = text.find(wanted); at != std::string::npos;
         at = text.find(wanted, at + wanted.size()))
        ++count;
    return count;
}

} // namespace

DaemonFiles::DaemonFiles()
{
    std::filesystem::create_directory(file("firmware"));
    std::filesystem::create_directory(file("run"));
    write("firmware/vanafw.bin", firmware_image("vector", "program"));
    write("firmware/vabi_1920x1080.dat", work_data_image("work"));
    store("");
}

void DaemonFiles::write(const std::string &name, const std::string &content) const
{
    std::ofstream(file(name), std::ios::binary) << content;
}

std::string DaemonFiles::read(const std::string &name) const
{
    std::ostringstream text;
    text << std::ifstream(file(name), std::ios::binary).rdbuf();
    return text.str();
}

void DaemonFiles::store(const std::string &lines) const
{
    write("store.new", "Properties.ImageSource.Sensor=imx122\n" + lines);
    std::filesystem::rename(file("store.new"), file("store"));
}

Daemon::Daemon(const DaemonFiles &files, std::vector<std::string> arguments,
               const std::string &output)
    : files_(files), output_(output)
{
    std::vector<char *> argv{const_cast<char *>("va")};
    for (std::string &argument : arguments)
        argv.push_back(argument.data());
    argv.push_back(nullptr);
    const std::string err = output + ".err";
    // What an earlier daemon printed must not pass for this one's.
    for (const std::string &file : {output, err})
        std::filesystem::remove(files.file(file));
    pid_ = fork();
    if (pid_ != 0)
        return;
    const auto redirect = [](const std::string &file, int to) {
        dup2(open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666), to);
    };
    if (chdir(files.path().c_str()) != 0)
        _exit(99);
    setenv("NVRAM_FILE", "store", 1);
    setenv("VA_SIM_SCENE", "scene", 1);
    redirect(output, STDOUT_FILENO);
    redirect(err, STDERR_FILENO);
    execv(VA_UNDER_TEST, argv.data());
    _exit(99);
}

Daemon::~Daemon()
{
    if (pid_ <= 0)
        return;
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
}

void Daemon::signal(int number) const
{
    kill(pid_, number);
}

bool Daemon::wait_for_output(const std::string &text, int times) const
{
    return wait_until([&] { return occurrences(output(), text) >= times; });
}

bool Daemon::wait_for_log(const std::string &text, int times) const
{
    return wait_until([&] { return occurrences(log(), text) >= times; });
}

bool Daemon::wait_for_exit()
{
    int status = -1;
    if (!wait_until([&] { return waitpid(pid_, &status, WNOHANG) == pid_; }))
        return false;
    pid_ = -1;
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

Client::Client(const std::string &path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    wait_until([&] {
        return connect(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    });
}

Client::~Client()
{
    close(fd_);
}

bool Client::read_all(void *data, std::size_t length) const
{
    constexpr int bound_ms = 20'000;
    auto *at = static_cast<char *>(data);
    while (length > 0) {
        pollfd readable{fd_, POLLIN, 0};
        if (poll(&readable, 1, bound_ms) != 1)
            return false;
        const ssize_t got = read(fd_, at, length);
        if (got <= 0)
            return false;
        at += got;
        length -= static_cast<std::size_t>(got);
    }
    return true;
}

bool Client::next(std::string &payload) const
{
    std::uint32_t length = 0;
    if (!read_all(&length, sizeof length))
        return false;
    payload.resize(length);
    return read_all(payload.data(), payload.size());
}
