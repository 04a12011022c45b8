#pragma once

#include <cstddef>
#include <cstring>

// Comparisons of the camera's other settings. Their records belong to the daemons that read them;
// here only a record's size in bytes counts. Each returns 0 when the two records are equal byte for
// byte. Any thread.

using RecordComparison = int(const void *, const void *);

template <std::size_t Size>
int compare_bytes(const void *a, const void *b)
{
    return std::memcmp(a, b, Size);
}

inline constexpr RecordComparison &conf_compareDynamicParamConf = compare_bytes<8>;
inline constexpr RecordComparison &conf_compareNetworkQosConf = compare_bytes<20>;
inline constexpr RecordComparison &conf_compareImageRotateConf = compare_bytes<12>;
inline constexpr RecordComparison &conf_compareAccountConf = compare_bytes<2048>;
inline constexpr RecordComparison &conf_compareGb28181 = compare_bytes<1036>;
inline constexpr RecordComparison &conf_compareAudioExConf = compare_bytes<8>;
inline constexpr RecordComparison &conf_compareH264ConfEx = compare_bytes<24>;
inline constexpr RecordComparison &conf_compareEPTZConf = compare_bytes<20>;
inline constexpr RecordComparison &conf_comparePrivacyMaskConfigEx = compare_bytes<124>;
inline constexpr RecordComparison &conf_compareDenoiseConf = compare_bytes<20>;
inline constexpr RecordComparison &conf_compareNetworkConf = compare_bytes<128>;
inline constexpr RecordComparison &conf_compareAoiConf = compare_bytes<60>;
inline constexpr RecordComparison &conf_compareCameraTamperingConf = compare_bytes<8>;
inline constexpr RecordComparison &conf_compareSystemPropertiesConf = compare_bytes<48>;
inline constexpr RecordComparison &conf_compareContinuousRecorderConf = compare_bytes<284>;
inline constexpr RecordComparison &conf_compareEventRecorderConf = compare_bytes<288>;
inline constexpr RecordComparison &conf_compareRecorderConf = compare_bytes<280>;
inline constexpr RecordComparison &conf_compareMulticastConf = compare_bytes<88>;
inline constexpr RecordComparison &conf_compareVideoProperties = compare_bytes<308>;
inline constexpr RecordComparison &conf_compareAudioProperties = compare_bytes<32>;
inline constexpr RecordComparison &conf_compareRtspConfig = compare_bytes<12>;
inline constexpr RecordComparison &conf_compareProfileAudioConfig = compare_bytes<12>;
inline constexpr RecordComparison &conf_compareTvOutConf = compare_bytes<12>;
inline constexpr RecordComparison &conf_compareOsdConfig = compare_bytes<8104>;
inline constexpr RecordComparison &conf_compareOverlayConfig = compare_bytes<564>;
inline constexpr RecordComparison &conf_compareProfileVideoConfig = compare_bytes<348>;
