#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

// Runs a fuzzer's entry once with each file of a directory, without libFuzzer: what the seeds have
// shown stays shown, in every build.

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

int main(int argc, char **argv)
{
    int count = 0;
    if (argc != 2)
        return 2;
    for (const auto &entry : std::filesystem::directory_iterator(argv[1])) {
        std::printf("%s\n", entry.path().filename().c_str());
        std::fflush(stdout); // before it may crash
        std::ifstream file(entry.path(), std::ios::binary);
        const std::string content(std::istreambuf_iterator<char>(file), {});
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t *>(content.data()),
                               content.size());
        ++count;
    }
    return count > 0 ? 0 : 1;
}
