#include "tests/support/program.h"

#include "tests/support/wait.h"
#include "util/fd.h"

#include <csignal>
#include <fstream>
#include <sstream>
#include <utility>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

Fd create(const std::string &path)
{
    return Fd(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
}

// What was built for another processor runs under its emulator.
std::vector<std::string> command(const std::string &path, std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), path);
    if (path.starts_with(VA_BUILD_DIR))
        arguments.insert(arguments.begin(), {VA_EMULATOR});
    return arguments;
}

} // namespace

std::string read_file(const std::string &path)
{
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

Program::Program(const std::string &path, const std::string &directory,
                 std::vector<std::string> arguments, const std::string &output)
    : output_(directory + "/" + output)
{
    constexpr unsigned bound_s = 120;
    std::vector<std::string> words = command(path, std::move(arguments));
    std::vector<char *> argv;
    for (std::string &word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    const Fd out = create(output_);
    const Fd err = create(output_ + ".err");
    pid_ = fork();
    if (pid_ != 0)
        return;
    alarm(bound_s); // outlives the exec
    if (chdir(directory.c_str()) == 0 && dup2(out.get(), STDOUT_FILENO) >= 0 &&
        dup2(err.get(), STDERR_FILENO) >= 0)
        execvp(argv[0], argv.data());
    _exit(99);
}

Program::~Program()
{
    signal(SIGKILL);
    if (!ended_)
        waitpid(pid_, nullptr, 0);
}

void Program::signal(int number) const
{
    if (!ended_)
        kill(pid_, number);
}

bool Program::has_exited(int status)
{
    ended_ = ended_ || waitpid(pid_, &status_, WNOHANG) == pid_;
    return ended_ && WIFEXITED(status_) && WEXITSTATUS(status_) == status;
}

bool Program::wait_for_output(const std::string &text) const
{
    return wait_until([&] { return output().find(text) != std::string::npos; });
}

bool Program::wait_for_log(const std::string &text, int times) const
{
    return wait_until([&] {
        const std::string all = log();
        std::size_t at = 0;
        for (int found = 0; found < times && at != std::string::npos; ++found)
            at = all.find(text, at + (found > 0));
        return at != std::string::npos;
    });
}

bool Program::wait_for_exit(int status)
{
    return wait_until([&] { return has_exited(status) || ended_; }) && has_exited(status);
}
