#include "conf/conf_sensor.h"
#include "platform/nvram.h"
#include "va/drivers.h"
#include "va/fd_control.h"
#include "va/od_control.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>

// Whatever the values in the store are: the readers and the translations into the library's blocks
// stay within their records.

namespace
{

std::string_view values; // one after another, parted by newlines

} // namespace

// The store of this program: each key that is read takes the next value, the default after the
// last.
int nvram_get_with_buffer(char *buffer, std::size_t size, const char *default_text, const char *,
                          ...)
{
    const std::string_view value = values.substr(0, values.find('\n'));
    values.remove_prefix(std::min(values.size(), value.size() + 1));
    const std::string_view text = value.empty() && default_text ? default_text : value;
    if (size == 0 || (text.empty() && !default_text))
        return 0;
    buffer[text.copy(buffer, size - 1)] = '\0';
    return 1;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static const OdFrame frames[] = {{1920, 1080, 30, true}, {1280, 1024, 1, false}};
    values = {reinterpret_cast<const char *>(data), size};
    const auto context = std::make_unique<VaContext>();
    gm_bOdEna = gm_bFdEna = gm_bTaEna = gm_bDisEna = 1;
    context->sensorConf.width = frames[0].width; // settings are read with a sensor alone
    context->sensorConf.height = frames[0].height;
    context->sensorConf.fps = frames[0].fps;
    va_od_getConf(context.get());
    va_fd_getConf(context.get());
    va_ta_getConf(context.get());
    va_dis_getConf(context.get());
    conf_getSensorConfig(&context->sensorConf);
    for (const OdFrame &frame : frames) {
        od_working(context->odCtrl, frame);
        od_masks(context->odMask, frame);
        od_dynamic_set(context->odDoParamSet, frame);
        od_static_set(context->odSoParamSet, frame);
        od_vmf(context->odVmfParam, frame);
        fd_watch_mask(context->fdWatchWindows, frame.wide);
        for (const VaFdWindow &window : context->fdDetectWindows)
            fd_pixels(window, frame.width, frame.height);
    }
    ne3_val_fd_ctrl ctrl{};
    fd_apply_settings(context->fdCtrl, ctrl);
    return 0;
}
