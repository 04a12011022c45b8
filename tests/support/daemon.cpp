#include "tests/support/daemon.h"

#include "ipc/network/socket.h"
#include "tests/support/firmware.h"
#include "tests/support/wait.h"

#include <cstdlib>
#include <fstream>

#include <poll.h>

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

Daemon::Daemon(const DaemonFiles &its_files, std::vector<std::string> arguments,
               const std::string &output)
    : Program(VA_HERE, its_files.path(), std::move(arguments), output), files(its_files)
{
}

bool Daemon::stop(int signal)
{
    Program::signal(signal);
    return wait_for_exit() && output().find("sig1_handler terminate = 1\n") != std::string::npos &&
           log().find("VA: Application quit.\n") != std::string::npos &&
           !std::filesystem::exists(files.file("run/pid"));
}

Client::Client(const std::string &path)
{
    int fd = -1;
    wait_until([&] { return unix_domain_socket_connect(&fd, path.c_str()) == 0; });
    fd_.reset(fd);
}

std::optional<std::string> Client::next()
{
    constexpr int bound_ms = 20'000;
    std::span<const std::uint8_t> payload;
    while (reader_.next(payload) != va::FrameReader::Result::Frame) {
        std::uint8_t bytes[4096];
        pollfd readable{fd_.get(), POLLIN, 0};
        const ssize_t got =
            poll(&readable, 1, bound_ms) > 0 ? read(fd_.get(), bytes, sizeof bytes) : 0;
        if (got <= 0)
            return std::nullopt;
        reader_.append(std::span(bytes, static_cast<std::size_t>(got)));
    }
    return std::string(payload.begin(), payload.end());
}
