#include "tests/support/daemon.h"

#include "ipc/network/socket.h"
#include "tests/support/firmware.h"
#include "tests/support/wait.h"

#include <cstdlib>
#include <fstream>

DaemonFiles::DaemonFiles()
{
    std::filesystem::create_directory(file("firmware"));
    std::filesystem::create_directory(file("run"));
    write("firmware/vanafw.bin", firmware({6, SIM_PROGRAM_ADDRESS, 7}, "vectorprogram"));
    write("firmware/vabi_1920x1080.dat", work_data(SIM_WORK_ADDRESS, 4, "work"));
    store("");
    setenv("NVRAM_FILE", "store", 1);
    setenv("VA_SIM_SCENE", "scene", 1);
}

void DaemonFiles::write(const std::string &name, const std::string &content) const
{
    std::ofstream(file(name), std::ios::binary) << content;
}

void DaemonFiles::store(const std::string &lines) const
{
    write("store.new", "Properties.ImageSource.Sensor=imx122\n" + lines);
    std::filesystem::rename(file("store.new"), file("store"));
}

Daemon::Daemon(const DaemonFiles &files, std::vector<std::string> arguments,
               const std::string &output)
    : Program(VA_UNDER_TEST, files.path(), std::move(arguments), output)
{
}

Client::Client(const std::string &path)
{
    int fd = -1;
    wait_until([&] { return unix_domain_socket_connect(&fd, path.c_str()) == 0; });
    fd_.reset(fd);
}

std::optional<std::string> Client::next() const
{
    constexpr int bound_ms = 20'000;
    int length = 0;
    if (full_read_with_timeout(fd(), &length, sizeof length, bound_ms) != sizeof length)
        return std::nullopt;
    std::string payload(static_cast<std::size_t>(length), '\0');
    if (full_read_with_timeout(fd(), payload.data(), length, bound_ms) != length)
        return std::nullopt;
    return payload;
}
