#include "platform/firmware.h"
#include "platform/sim/sim.h"
#include "util/util.h"
#include "va/coprocessor.h"
#include "va/paths.h"

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <vector>

// Whatever the co-processor's files hold: the daemon boots when all images are whole and inside
// their areas, and no other time; then each area holds its image and nothing else. The address
// sanitizer watches the areas' ends.

namespace
{

struct Image {
    std::string_view bytes; // as many as the file has
    std::uint32_t size;     // as many as its header claims
    std::uint32_t offset;   // in its area; of an address below the area beyond the end of any
};

bool fits(const Image &image, std::uint32_t area)
{
    return image.size > 0 && image.bytes.size() == image.size && image.offset <= area &&
           image.size <= area - image.offset;
}

bool holds(const std::vector<unsigned char> &area, const Image &image)
{
    std::vector<unsigned char> expected(area.size());
    std::ranges::copy(image.bytes, expected.begin() + static_cast<std::ptrdiff_t>(image.offset));
    return area == expected;
}

std::string_view from(std::string_view file, std::size_t begin)
{
    return file.substr(std::min(begin, file.size()));
}

template <class Header>
Header header_of(std::string_view file)
{
    Header header{};
    std::memcpy(&header, file.data(), std::min(file.size(), sizeof header));
    return header;
}

struct Files {
    Image vector, program, work;

    Files(std::string_view firmware_file, std::string_view work_file)
    {
        const auto firmware = header_of<FirmwareHeader>(firmware_file);
        const auto data = header_of<WorkDataHeader>(work_file);
        const std::uint32_t vector_size = buf2long(firmware.vectorSize);
        const std::uint32_t program_size = buf2long(firmware.programSize);
        const std::uint32_t work_size = buf2long(data.workSize);
        const std::string_view images = from(firmware_file, sizeof firmware);
        vector = {images.substr(0, vector_size), vector_size, 0};
        program = {from(images, vector_size).substr(0, program_size), program_size,
                   buf2long(firmware.programAddress) - SIM_PROGRAM_ADDRESS};
        work = {from(work_file, sizeof data).substr(0, work_size), work_size,
                buf2long(data.workAddress) - SIM_WORK_ADDRESS};
    }

    bool fit() const
    {
        return fits(vector, SIM_VECTOR_SIZE) && fits(program, SIM_PROGRAM_SIZE) &&
               fits(work, SIM_WORK_SIZE);
    }
};

// Made anew: to cut a file that is there would have it written to the disk.
void write_file(const char *path, std::string_view content)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::filesystem::remove(path);
    std::ofstream(path, std::ios::binary) << content;
}

} // namespace

// The first two bytes are the length of the firmware's file; the work data's file takes the rest.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    constexpr std::size_t prefix = 2;
    if (size < prefix)
        return 0;
    const std::string_view content(reinterpret_cast<const char *>(data) + prefix, size - prefix);
    const std::size_t length = std::min(static_cast<std::size_t>(buf2short(data)), content.size());
    const Files files(content.substr(0, length), content.substr(length));
    write_file(va_firmware_path, content.substr(0, length));
    write_file(va_work_data_1080p_path, content.substr(length));

    sim_reset();
    VaContext context{};
    std::strcpy(context.sensorConf.sensor, "imx122");
    va_cl_init();
    const bool booted = va_vana_boot(&context) == 0;
    assert(booted == files.fit());
    if (booted) {
        assert(holds(sim_state().areas.value().vector, files.vector));
        assert(holds(sim_state().areas.value().program, files.program));
        assert(holds(sim_state().areas.value().work, files.work));
    }
    va_vana_quit(&context);
    va_cl_stop();
    return 0;
}
