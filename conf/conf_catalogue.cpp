#include "conf/conf_catalogue.h"

#include <cstring>

using std::memcmp;

// clang-format off
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
