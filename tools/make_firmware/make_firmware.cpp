#include "platform/firmware.h"
#include "platform/sim/sim.h"
#include "util/file.h"
#include "util/util.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <numeric>
#include <string>

// Sample co-processor files for the stand-in: the headers are real, the images a byte pattern.

namespace
{

// Smaller than the areas of the stand-in, and not at their starts.
constexpr std::uint32_t vector_size = 512;
constexpr std::uint32_t program_offset = 4096;
constexpr std::uint32_t program_size = 16 * 1024;
constexpr std::uint32_t work_offset = 1024;
constexpr std::uint32_t work_size = 8 * 1024;
static_assert(vector_size <= SIM_VECTOR_SIZE && program_offset + program_size <= SIM_PROGRAM_SIZE &&
              work_offset + work_size <= SIM_WORK_SIZE);

template <class Header>
std::string text_of(const Header &header)
{
    return {reinterpret_cast<const char *>(&header), sizeof header};
}

// Each image counts up from a byte of its own, so that a look at the memory tells them apart.
std::string image(std::uint32_t size, char first)
{
    std::string bytes(size, '\0');
    std::iota(bytes.begin(), bytes.end(), first);
    return bytes;
}

std::string firmware_image()
{
    FirmwareHeader header{};
    long2str(header.vectorSize, vector_size);
    long2str(header.programAddress, SIM_PROGRAM_ADDRESS + program_offset);
    long2str(header.programSize, program_size);
    return text_of(header) + image(vector_size, 'V') + image(program_size, 'P');
}

std::string work_data()
{
    WorkDataHeader header{};
    long2str(header.workAddress, SIM_WORK_ADDRESS + work_offset);
    long2str(header.workSize, work_size);
    return text_of(header) + image(work_size, 'W');
}

bool write_file(const std::filesystem::path &path, const std::string &content)
{
    const bool written = va::replace_file(path, content) == 0;
    if (!written)
        std::perror(path.c_str());
    return written;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc > 2 || (argc == 2 && argv[1][0] == '-')) {
        std::fputs("usage: make_firmware [directory]\n"
                   "Writes sample co-processor files for the stand-in; the default directory "
                   "is\n" VA_FIRMWARE_DIR "\n",
                   stderr);
        return EXIT_FAILURE;
    }
    const std::filesystem::path directory = argc == 2 ? argv[1] : VA_FIRMWARE_DIR;
    std::error_code error;
    std::filesystem::create_directories(directory, error);
    if (error) {
        std::fprintf(stderr, "%s: %s\n", directory.c_str(), error.message().c_str());
        return EXIT_FAILURE;
    }
    const bool written = write_file(directory / "vanafw.bin", firmware_image()) &&
                         write_file(directory / "vabi_1920x1080.dat", work_data());
    return written ? EXIT_SUCCESS : EXIT_FAILURE;
}
