#pragma once

// Comparisons of the records of the camera's other settings, which other daemons read and define;
// only their sizes are known here. Each returns 0 when the two records are equal byte for byte. Any
// thread.

int conf_compareDynamicParamConf(const void *a, const void *b);
int conf_compareNetworkQosConf(const void *a, const void *b);
int conf_compareImageRotateConf(const void *a, const void *b);
int conf_compareAccountConf(const void *a, const void *b);
int conf_compareGb28181(const void *a, const void *b);
int conf_compareAudioExConf(const void *a, const void *b);
int conf_compareH264ConfEx(const void *a, const void *b);
int conf_compareEPTZConf(const void *a, const void *b);
int conf_comparePrivacyMaskConfigEx(const void *a, const void *b);
int conf_compareDenoiseConf(const void *a, const void *b);
int conf_compareNetworkConf(const void *a, const void *b);
int conf_compareAoiConf(const void *a, const void *b);
int conf_compareCameraTamperingConf(const void *a, const void *b);
int conf_compareSystemPropertiesConf(const void *a, const void *b);
int conf_compareContinuousRecorderConf(const void *a, const void *b);
int conf_compareEventRecorderConf(const void *a, const void *b);
int conf_compareRecorderConf(const void *a, const void *b);
int conf_compareMulticastConf(const void *a, const void *b);
int conf_compareVideoProperties(const void *a, const void *b);
int conf_compareAudioProperties(const void *a, const void *b);
int conf_compareRtspConfig(const void *a, const void *b);
int conf_compareProfileAudioConfig(const void *a, const void *b);
int conf_compareTvOutConf(const void *a, const void *b);
int conf_compareOsdConfig(const void *a, const void *b);
int conf_compareOverlayConfig(const void *a, const void *b);
int conf_compareProfileVideoConfig(const void *a, const void *b);
