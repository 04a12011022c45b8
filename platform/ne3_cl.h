#pragma once

#include <cstddef>
#include <cstdint>

// The loader of the chip's analytics co-processor ("cpu3").

// The three memory areas of the co-processor. The daemon's mappings are valid from
// ne3_cl_cpu3_get_memory_info() until ne3_cl_sys_close_device().
struct vanaMemInfo {
    void *pProgramAddress; // the daemon's mappings
    void *pWorkAddress;
    void *pVectorAddress;
    std::uint32_t programPhysAddress; // where the co-processor sees them
    std::uint32_t workPhysAddress;
    std::uint32_t vectorAddress;
    std::uint32_t programSize; // bytes
    std::uint32_t workSize;
    std::uint32_t vectorSize;
};
static_assert(sizeof(void *) != 4 ||
              (offsetof(vanaMemInfo, programPhysAddress) == 12 &&
               offsetof(vanaMemInfo, vectorSize) == 32 && sizeof(vanaMemInfo) == 36));

extern "C" {

// Each returns 0 on success, or -1 with the loader's code in errno.

int ne3_cl_library_init();
int ne3_cl_sys_open_device();
int ne3_cl_cpu3_get_memory_info(vanaMemInfo *info);
int ne3_cl_cpu3_xfer_complete(); // the images in the areas are complete
int ne3_cl_cpu3_boot();
int ne3_cl_cpu3_xfer_cancel(); // abandons a transfer
int ne3_cl_cpu3_shutdown();
int ne3_cl_sys_close_device();
int ne3_cl_library_exit();
}
