#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

// A fresh directory that is removed with all it holds.
class TempDir
{
public:
    TempDir()
    {
        std::string name = (std::filesystem::temp_directory_path() / "va-test-XXXXXX").string();
        if (!mkdtemp(name.data()))
            throw std::runtime_error("mkdtemp " + name);
        path_ = name;
    }
    ~TempDir()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;

    std::string file(const std::string &name) const { return path_ + "/" + name; }
    const std::string &path() const { return path_; }

private:
    std::string path_;
};
