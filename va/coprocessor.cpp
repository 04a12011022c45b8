#include "va/coprocessor.h"

#include "platform/firmware.h"
#include "platform/ne3_val.h"
#include "util/fd.h"
#include "util/util.h"
#include "va/drivers.h"
#include "va/log.h"
#include "va/paths.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr VanaConfigFile config_files[] = {
    {"imx122", va_work_data_1080p_path},
    {"imx140", va_work_data_1080p_path},
    {"imx140la", va_work_data_1080p_path},
};

// Empty when there is no such file, which is reported but not logged. Never waits, as for a FIFO's
// writer.
Fd open_file(const char *path, VaReport *report)
{
    Fd file(open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    struct stat status;
    const bool found = file && fstat(file.get(), &status) == 0;
    if (found && S_ISREG(status.st_mode))
        return file;
    va::report(report, &VaHealth::cannot_boot, path,
               found ? "not a regular file" : std::strerror(errno));
    return Fd();
}

struct Area {
    void *address;
    std::uint32_t physical;
    std::uint32_t size;
};

bool read_whole(const Fd &file, void *destination, std::size_t length)
{
    auto *const bytes = static_cast<std::uint8_t *>(destination);
    std::size_t got = 0;
    while (got < length) {
        const ssize_t count = read(file.get(), bytes + got, length - got);
        if (count <= 0)
            return false;
        got += static_cast<std::size_t>(count);
    }
    return length > 0;
}

// Reads the next `length` bytes to where the co-processor sees `load_address`. An image that is not
// wholly inside the area is refused like one that cannot be read.
bool read_image(const Fd &file, const Area &area, std::uint32_t load_address, std::uint32_t length)
{
    if (load_address < area.physical)
        return false;
    const std::uint32_t offset = load_address - area.physical;
    if (offset > area.size || length > area.size - offset)
        return false;
    return read_whole(file, static_cast<std::uint8_t *>(area.address) + offset, length);
}

bool load_firmware(const Fd &file, const vanaMemInfo &info)
{
    FirmwareHeader header;
    if (!read_whole(file, &header, sizeof header)) {
        va::log_error("%s: error read.", "va_vana_boot");
        return false;
    }
    const Area vector{info.pVectorAddress, info.vectorAddress, info.vectorSize};
    const Area program{info.pProgramAddress, info.programPhysAddress, info.programSize};
    if (!read_image(file, vector, vector.physical, buf2long(header.vectorSize)) ||
        !read_image(file, program, buf2long(header.programAddress), buf2long(header.programSize))) {
        va::log_error("%s: vanafw read program failed.", "va_vana_boot");
        return false;
    }
    return true;
}

bool load_work_data(const Fd &file, const vanaMemInfo &info)
{
    WorkDataHeader header;
    const Area work{info.pWorkAddress, info.workPhysAddress, info.workSize};
    if (!read_whole(file, &header, sizeof header) ||
        !read_image(file, work, buf2long(header.workAddress), buf2long(header.workSize))) {
        va::log_error("%s: vana config read program failed.", "va_vana_boot");
        return false;
    }
    return true;
}

// Null when the sensor is not supported.
const char *work_data_path(const char *sensor)
{
    const auto row = std::ranges::find_if(vanaConfigFiles, [=](const VanaConfigFile &file) {
        return strcasecmp(file.sensor, sensor) == 0;
    });
    return row == vanaConfigFiles.end() ? nullptr : row->path;
}

int load_images(const char *work_data, const vanaMemInfo &info, VaReport *report)
{
    const Fd firmware = open_file(va_firmware_path, report);
    if (!firmware)
        return -1;
    const Fd work = open_file(work_data, report);
    if (!work)
        return -1;
    return load_firmware(firmware, info) && load_work_data(work, info) ? 0 : -1;
}

// The loader's code is in errno. Returns -1.
int log_loader_failure(const char *what)
{
    va::log_error("%s failed.\n", what);
    return va::log_error("errno : 0x%08X\n", errno);
}

int cancel_transfer()
{
    return ne3_cl_cpu3_xfer_cancel() == -1 ? log_loader_failure("vanafw transfer cancel") : 0;
}

int start_cpu()
{
    if (ne3_cl_cpu3_xfer_complete() == -1)
        log_loader_failure("vanafw transfer");
    else if (ne3_cl_cpu3_boot() == -1)
        log_loader_failure("vanafw boot");
    else
        return 0;
    cancel_transfer();
    return -1;
}

} // namespace

const std::span<const VanaConfigFile> vanaConfigFiles(config_files);

int va_cl_init()
{
    if (ne3_cl_library_init() != 0) {
        std::printf("ne3_cl_library_init fail, errno = %X .\n", static_cast<unsigned>(errno));
        return -1;
    }
    if (ne3_cl_sys_open_device() != 0) {
        std::printf("ne3_cl_sys_open_device fail, errno = %X .\n", static_cast<unsigned>(errno));
        return -1;
    }
    return 0;
}

int va_vana_boot(VaContext *context)
{
    va::report(context->report, &VaHealth::boots);
    const char *sensor = context->sensorConf.sensor;
    const char *work_data = work_data_path(sensor);
    if (!work_data)
        return va::log_error("%s: Sensor %s is not supported", "va_vana_boot", sensor);
    vanaMemInfo info{};
    if (ne3_cl_cpu3_get_memory_info(&info) == -1) {
        va::log_error("Failed to get vana memory info.");
        return va::log_error("errno : 0x%08X", errno);
    }
    dump_vana_meminfo(&info);
    return load_images(work_data, info, context->report) == 0 ? start_cpu() : -1;
}

void dump_vana_meminfo(const vanaMemInfo *info)
{
    const auto number = [](std::uint32_t value) { return static_cast<unsigned long>(value); };
    std::printf("programPhysAddress: 0x%lx\n", number(info->programPhysAddress));
    std::printf("workPhysAddress:    0x%lx\n", number(info->workPhysAddress));
    std::printf("vectorAddress:    0x%lx\n", number(info->vectorAddress));
    std::printf("pProgramAddress:    %p\n", info->pProgramAddress);
    std::printf("programSize:        %lu\n", number(info->programSize));
    std::printf("pWorkAddress:       %p\n", info->pWorkAddress);
    std::printf("workSize:           %lu\n", number(info->workSize));
    std::printf("pVectorAddress:        %p\n", info->pVectorAddress);
    std::printf("vectorSize:           %lu\n", number(info->vectorSize));
}

int va_vana_init(VaContext *)
{
    if (ne3_val_init() == -1)
        return va::log_error("%s: ne3_val_init fail.", "va_vana_init");
    if (ne3_val_open() == -1)
        return va::log_error("%s: ne3_val_open fail.", "va_vana_init");
    return 0;
}

int va_vana_quit(VaContext *context)
{
    va_stop_modules();
    ne3_val_close();
    ne3_val_exit();
    va_vana_shutdown(context);
    return 0;
}

int va_vana_shutdown(VaContext *)
{
    return ne3_cl_cpu3_shutdown() == -1 ? log_loader_failure("vanafw shutdown") : cancel_transfer();
}

int va_cl_stop()
{
    ne3_cl_sys_close_device();
    ne3_cl_library_exit();
    return 0;
}
