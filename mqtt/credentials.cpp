#include "mqtt/credentials.h"

#include "util/fd.h"
#include "util/file.h"

#include <algorithm>
#include <stdexcept>

#include <arpa/inet.h>
#include <fcntl.h>
#include <mosquitto.h>
#include <sys/stat.h>

namespace va::mqtt
{

namespace
{

Fd open_file(const std::string &path)
{
    Fd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)); // it may be a FIFO
    if (!fd)
        throw_file_error(path);
    return fd;
}

void check_mode(const Fd &fd, const std::string &path)
{
    constexpr mode_t too_open = S_IWGRP | S_IRWXO;
    struct stat status;
    if (fstat(fd.get(), &status) == -1)
        throw_file_error(path);
    if (!S_ISREG(status.st_mode))
        throw std::runtime_error(path + " is no file");
    if (status.st_mode & too_open)
        throw std::runtime_error(path + " is open to others: chmod o-rwx,g-w closes it");
}

std::string read_password(const std::string &path)
{
    const Fd fd = open_file(path);
    check_mode(fd, path);
    char text[1024];
    const ssize_t size = read(fd.get(), text, sizeof text);
    if (size == -1)
        throw_file_error(path);
    std::string password(text, std::find(text, text + size, '\n'));
    if (password.ends_with('\r'))
        password.pop_back();
    if (password.empty() || password.size() == sizeof text ||
        password.find('\0') != std::string::npos)
        throw std::runtime_error(path + " holds no password in its first line, or a too long one");
    return password;
}

const char *or_none(const std::string &text)
{
    return text.empty() ? nullptr : text.c_str();
}

bool is_loopback(const std::string &host)
{
    in_addr address;
    const bool is_ipv4 = inet_pton(AF_INET, host.c_str(), &address) == 1;
    return host == "localhost" || host == "::1" ||
           (is_ipv4 && ntohl(address.s_addr) >> IN_CLASSA_NSHIFT == IN_LOOPBACKNET);
}

void set_user(mosquitto *handle, const Settings &settings)
{
    std::string password;
    if (!settings.password_file.empty())
        password = read_password(settings.password_file);
    mosquitto_username_pw_set(handle, settings.username.c_str(), or_none(password));
}

void set_tls(mosquitto *handle, const Settings &settings)
{
    for (const std::string &path : {settings.ca_file, settings.certificate, settings.key}) {
        if (!path.empty())
            open_file(path); // the library does not say which it cannot read
    }
    const auto no_passphrase = [](char *, int, int, void *) { return 0; }; // nobody can be asked
    if (mosquitto_tls_set(handle, settings.ca_file.c_str(), nullptr, or_none(settings.certificate),
                          or_none(settings.key), no_passphrase) != MOSQ_ERR_SUCCESS)
        throw std::runtime_error("TLS cannot be set up with " + settings.ca_file);
}

} // namespace

void set_credentials(mosquitto *handle, const Settings &settings)
{
    if (!settings.username.empty())
        set_user(handle, settings);
    if (!settings.ca_file.empty())
        set_tls(handle, settings);
}

bool shows_password(const Settings &settings, const std::string &host)
{
    return !settings.password_file.empty() && settings.ca_file.empty() && !is_loopback(host);
}

} // namespace va::mqtt
