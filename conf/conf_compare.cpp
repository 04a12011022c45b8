#include "conf/conf_compare.h"

#include "conf/conf_analytics.h"
#include "conf/conf_fd.h"
#include "conf/conf_od.h"
#include "conf/conf_vmf.h"

#include <cstring>
#include <type_traits>

using std::memcmp;

namespace
{

template <class Record>
int compare(const Record *a, const Record *b)
{
    static_assert(std::has_unique_object_representations_v<Record>, "padding would be compared");
    return memcmp(a, b, sizeof(Record));
}

} // namespace

// clang-format off
int conf_compareIvsCtrlConf(const IvsCtrlConf *a, const IvsCtrlConf *b) { return compare(a, b); }
int conf_compareTACtrlConf(const TACtrlConf *a, const TACtrlConf *b) { return compare(a, b); }
int conf_compareDISCtrlConf(const DISCtrlConf *a, const DISCtrlConf *b) { return compare(a, b); }
int conf_compareFDCtrlConf(const FDCtrlConf *a, const FDCtrlConf *b) { return compare(a, b); }
int conf_compareODCtrlConf(const ODCtrlConf *a, const ODCtrlConf *b) { return compare(a, b); }
int conf_compareODMaskConf(const ODMaskConf *a, const ODMaskConf *b) { return compare(a, b); }
int conf_compareODDetMaskConf(const ODDetMaskConf *a, const ODDetMaskConf *b)
{ return compare(a, b); }
int conf_compareODDoParamInitConf(const ODDoParamInitConf *a, const ODDoParamInitConf *b)
{ return compare(a, b); }
int conf_compareODDoParamSetConf(const ODDoParamSetConf *a, const ODDoParamSetConf *b)
{ return compare(a, b); }
int conf_compareODSoParamInitConf(const ODSoParamInitConf *a, const ODSoParamInitConf *b)
{ return compare(a, b); }
int conf_compareODSoParamSetConf(const ODSoParamSetConf *a, const ODSoParamSetConf *b)
{ return compare(a, b); }
int conf_compareMotionConfig(const MotionConfig *a, const MotionConfig *b) { return compare(a, b); }
int conf_comparePrivacyMaskConfig(const PrivacyMaskConfig *a, const PrivacyMaskConfig *b)
{ return compare(a, b); }
int conf_compareODVmfFilterConf(const ODVmfFilterConf *a, const ODVmfFilterConf *b)
{ return compare(a, b); }
int conf_compareODVmfParamConf(const ODVmfParamConf *a, const ODVmfParamConf *b)
{ return compare(a, b); }

int conf_compareDynamicParamConf(const void *a, const void *b) { return memcmp(a, b, 8); }
int conf_compareNetworkQosConf(const void *a, const void *b) { return memcmp(a, b, 20); }
int conf_compareImageRotateConf(const void *a, const void *b) { return memcmp(a, b, 12); }
int conf_compareAccountConf(const void *a, const void *b) { return memcmp(a, b, 2048); }
int conf_compareGb28181(const void *a, const void *b) { return memcmp(a, b, 1036); }
int conf_compareAudioExConf(const void *a, const void *b) { return memcmp(a, b, 8); }
int conf_compareH264ConfEx(const void *a, const void *b) { return memcmp(a, b, 24); }
int conf_compareEPTZConf(const void *a, const void *b) { return memcmp(a, b, 20); }
int conf_comparePrivacyMaskConfigEx(const void *a, const void *b) { return memcmp(a, b, 124); }
int conf_compareDenoiseConf(const void *a, const void *b) { return memcmp(a, b, 20); }
int conf_compareNetworkConf(const void *a, const void *b) { return memcmp(a, b, 128); }
int conf_compareAoiConf(const void *a, const void *b) { return memcmp(a, b, 60); }
int conf_compareCameraTamperingConf(const void *a, const void *b) { return memcmp(a, b, 8); }
int conf_compareSystemPropertiesConf(const void *a, const void *b) { return memcmp(a, b, 48); }
int conf_compareContinuousRecorderConf(const void *a, const void *b) { return memcmp(a, b, 284); }
int conf_compareEventRecorderConf(const void *a, const void *b) { return memcmp(a, b, 288); }
int conf_compareRecorderConf(const void *a, const void *b) { return memcmp(a, b, 280); }
int conf_compareMulticastConf(const void *a, const void *b) { return memcmp(a, b, 88); }
int conf_compareVideoProperties(const void *a, const void *b) { return memcmp(a, b, 308); }
int conf_compareAudioProperties(const void *a, const void *b) { return memcmp(a, b, 32); }
int conf_compareRtspConfig(const void *a, const void *b) { return memcmp(a, b, 12); }
int conf_compareProfileAudioConfig(const void *a, const void *b) { return memcmp(a, b, 12); }
int conf_compareTvOutConf(const void *a, const void *b) { return memcmp(a, b, 12); }
int conf_compareOsdConfig(const void *a, const void *b) { return memcmp(a, b, 8104); }
int conf_compareOverlayConfig(const void *a, const void *b) { return memcmp(a, b, 564); }
int conf_compareProfileVideoConfig(const void *a, const void *b) { return memcmp(a, b, 348); }
// clang-format on
