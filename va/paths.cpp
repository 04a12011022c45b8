#include "va/paths.h"

const char va_run_dir[] = VA_RUN_DIR;
const char va_pid_path[] = VA_RUN_DIR "/pid";
const char va_pid_lock_path[] = VA_RUN_DIR "/pid.lock";
const char va_ctrl_path[] = VA_RUN_DIR "/ctrl";
const char va_status_path[] = VA_RUN_DIR "/status";
const char va_od_path[] = VA_RUN_DIR "/od";
const char va_vmf_path[] = VA_RUN_DIR "/vmf";
const char va_fd_path[] = VA_RUN_DIR "/fd";
const char va_ta_path[] = VA_RUN_DIR "/ta";

const char va_stop_command[] = "cat " VA_RUN_DIR "/pid | xargs kill ";

const char va_firmware_path[] = VA_FIRMWARE_DIR "/vanafw.bin";
const char va_work_data_1080p_path[] = VA_FIRMWARE_DIR "/vabi_1920x1080.dat";
