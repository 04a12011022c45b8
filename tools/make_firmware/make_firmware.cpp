#include "platform/firmware.h"
#include "platform/sim/sim.h"
#include "util/util.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

// Sample co-processor files for the stand-in: the headers are real, the images a byte pattern.

namespace
{

using Bytes = std::vector<char>;

// Smaller than the areas of the stand-in, and not at their starts.
constexpr std::uint32_t vector_size = 512;
constexpr std::uint32_t program_offset = 4096;
constexpr std::uint32_t program_size = 16 * 1024;
constexpr std::uint32_t work_offset = 1024;
constexpr std::uint32_t work_size = 8 * 1024;
static_assert(vector_size <= SIM_VECTOR_SIZE && program_offset + program_size <= SIM_PROGRAM_SIZE &&
              work_offset + work_size <= SIM_WORK_SIZE);

template <class Header>
Bytes header_bytes(const Header &header)
{
    Bytes bytes(sizeof header);
    std::memcpy(bytes.data(), &header, sizeof header);
    return bytes;
}

// Each image counts up from a byte of its own, so that a look at the memory tells them apart.
void append_image(Bytes &file, std::uint32_t size, unsigned first)
{
    for (std::uint32_t i = 0; i < size; ++i)
        file.push_back(static_cast<char>((first + i) & 0xff));
}

Bytes firmware_image()
{
    FirmwareHeader header{};
    long2str(header.vectorSize, vector_size);
    long2str(header.programAddress, SIM_PROGRAM_ADDRESS + program_offset);
    long2str(header.programSize, program_size);
    Bytes file = header_bytes(header);
    append_image(file, vector_size, 'V');
    append_image(file, program_size, 'P');
    return file;
}

Bytes work_data()
{
    WorkDataHeader header{};
    long2str(header.workAddress, SIM_WORK_ADDRESS + work_offset);
    long2str(header.workSize, work_size);
    Bytes file = header_bytes(header);
    append_image(file, work_size, 'W');
    return file;
}

bool write_file(const std::filesystem::path &path, const Bytes &content)
{
    std::ofstream file(path, std::ios::binary);
    file.write(content.data(), static_cast<std::streamsize>(content.size()));
    file.close();
    if (!file)
        std::perror(path.c_str());
    return static_cast<bool>(file);
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
