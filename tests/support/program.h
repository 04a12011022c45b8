#pragma once

#include <string>
#include <vector>

#include <sys/types.h>

std::string read_file(const std::string &path); // empty when there is none

// A program as a child process, its standard output and standard error in the files `output` and
// `output`.err of the directory that it is started in. Killed when left running, by the destructor
// or after two minutes.
class Program
{
public:
    Program(const std::string &path, const std::string &directory,
            std::vector<std::string> arguments, const std::string &output = "out");
    ~Program();
    Program(const Program &) = delete;
    Program &operator=(const Program &) = delete;

    pid_t pid() const { return pid_; }
    std::string output() const { return read_file(output_); }
    std::string log() const { return read_file(output_ + ".err"); }

    void signal(int number) const; // unless it was seen to end
    bool has_exited(int status = 0);

    // Bounded waits; false when the bound is passed.
    bool wait_for_output(const std::string &text) const;
    bool wait_for_log(const std::string &text, int times = 1) const;
    bool wait_for_exit(int status = 0);

private:
    std::string output_;
    pid_t pid_ = -1;
    bool ended_ = false;
    int status_ = 0; // as of waitpid(), when it has ended
};
