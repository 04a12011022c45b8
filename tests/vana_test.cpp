#include "tests/support/firmware.h"
#include "tests/support/va_fixture.h"
#include "va/va.h"
#include "va/vana.h"

#include <cstring>
#include <numeric>

namespace
{

class VanaTest : public VaTest
{
protected:
    VanaTest() { use_sensor("imx122"); }

    void use_sensor(const char *name)
    {
        std::snprintf(context.sensorConf.sensor, sizeof context.sensorConf.sensor, "%s", name);
    }

    // Boots with standard output dropped; the result and the log.
    std::pair<int, std::string> boot()
    {
        int result = 1;
        std::string log;
        stdout_of([&] { log = log_of([&] { result = va_vana_boot(&context); }); });
        return {result, log};
    }

    VaContext context{};
};

TEST_F(VanaTest, LoadsEveryImageToItsPlace)
{
    const std::uint32_t offset = SIM_PROGRAM_SIZE - 7; // the program ends where its area ends
    files.write("firmware/vanafw.bin",
                firmware_claiming({6, SIM_PROGRAM_ADDRESS + offset, 7}, "vectorprogram"));
    files.write("firmware/vabi_1920x1080.dat",
                work_data_claiming(SIM_WORK_ADDRESS + 8, 4, "work, and more"));
    use_sensor("IMX140LA");
    ASSERT_EQ(0, va_cl_init());
    EXPECT_EQ(std::make_pair(0, std::string()), boot());

    const auto text_at = [](const std::vector<unsigned char> &area, std::size_t at, std::size_t n) {
        return std::string(reinterpret_cast<const char *>(area.data()) + at, n);
    };
    EXPECT_EQ("vector", text_at(sim_vector_area(), 0, 6));
    EXPECT_EQ("program", text_at(sim_program_area(), offset, 7));
    EXPECT_EQ(std::string("work\0", 5), text_at(sim_work_area(), 8, 5));
    EXPECT_EQ((std::vector<std::string>{"ne3_cl_library_init", "ne3_cl_sys_open_device",
                                        "ne3_cl_cpu3_get_memory_info", "ne3_cl_cpu3_xfer_complete",
                                        "ne3_cl_cpu3_boot"}),
              sim_calls());
}

TEST_F(VanaTest, RefusesBadFiles)
{
    const std::string program_failed = "VA: va_vana_boot: vanafw read program failed.\n";
    const std::string work_failed = "VA: va_vana_boot: vana config read program failed.\n";
    const auto firmware = [](std::uint32_t vector, std::uint32_t address, std::uint32_t program) {
        return firmware_claiming({vector, address, program},
                                 std::string(SIM_PROGRAM_SIZE + SIM_VECTOR_SIZE + 16, 'x'));
    };
    const auto work = [](std::uint32_t address, std::uint32_t size) {
        return work_data_claiming(address, size, std::string(SIM_WORK_SIZE + 16, 'x'));
    };
    const std::string good = firmware_image("vector", "program");
    const std::string good_work = work_data_image("work");
    const std::uint32_t at = SIM_PROGRAM_ADDRESS;
    const struct {
        const char *what;
        std::string firmware;
        std::string work;
        std::string log;
    } cases[] = {
        {"empty firmware", "", good_work, "VA: va_vana_boot: error read.\n"},
        {"short header", good.substr(0, 127), good_work, "VA: va_vana_boot: error read.\n"},
        {"header alone", good.substr(0, 128), good_work, program_failed},
        {"no vector", firmware(0, at, 8), good_work, program_failed},
        {"no program", firmware(8, at, 0), good_work, program_failed},
        {"truncated vector", good.substr(0, 128 + 5), good_work, program_failed},
        {"truncated program", good.substr(0, good.size() - 1), good_work, program_failed},
        {"vector too large", firmware(SIM_VECTOR_SIZE + 1, at, 8), good_work, program_failed},
        {"program too large", firmware(8, at, SIM_PROGRAM_SIZE + 1), good_work, program_failed},
        {"program over the end", firmware(8, at + 1, SIM_PROGRAM_SIZE), good_work, program_failed},
        {"program below", firmware(8, at - 1, 8), good_work, program_failed},
        {"program beyond", firmware(8, at + SIM_PROGRAM_SIZE + 1, 8), good_work, program_failed},
        {"size wraps", firmware(8, at + 8, 0xfffffffc), good_work, program_failed},
        {"empty work data", good, "", work_failed},
        {"truncated work data", good, good_work.substr(0, good_work.size() - 1), work_failed},
        {"no work data", good, work(SIM_WORK_ADDRESS, 0), work_failed},
        {"work data too large", good, work(SIM_WORK_ADDRESS, SIM_WORK_SIZE + 1), work_failed},
        {"work data below", good, work(SIM_WORK_ADDRESS - 4, 4), work_failed},
    };
    ASSERT_EQ(0, va_cl_init());
    for (const auto &test : cases) {
        SCOPED_TRACE(test.what);
        files.write("firmware/vanafw.bin", test.firmware);
        files.write("firmware/vabi_1920x1080.dat", test.work);
        EXPECT_EQ(std::make_pair(-1, test.log), boot());
    }
    EXPECT_EQ(0, calls_of("ne3_cl_cpu3_xfer_complete"));

    for (const char *missing : {"firmware/vabi_1920x1080.dat", "firmware/vanafw.bin"}) {
        std::filesystem::remove(files.file(missing));
        EXPECT_EQ(std::make_pair(-1, std::string()), boot()) << missing;
    }
}

TEST_F(VanaTest, RefusesUnknownSensors)
{
    for (const char *name : {"ov9712", "imx14", "imx140lab", ""}) {
        use_sensor(name);
        EXPECT_EQ(std::make_pair(-1, "VA: va_vana_boot: Sensor " + std::string(name) +
                                         " is not supported\n"),
                  boot());
    }
}

TEST_F(VanaTest, LogsEachRefusedCall)
{
    const std::string transfer = "VA: vanafw transfer failed.\nVA: errno : 0x0000002A\n";
    const std::string started = "VA: vanafw boot failed.\nVA: errno : 0x0000002A\n";
    const std::string cancel = "VA: vanafw transfer cancel failed.\nVA: errno : 0x80000001\n";
    const struct {
        std::vector<const char *> failing;
        std::string log;
        int cancels;
    } cases[] = {
        {{"ne3_cl_cpu3_get_memory_info"},
         "VA: Failed to get vana memory info.\nVA: errno : 0x0000002A\n",
         0},
        {{"ne3_cl_cpu3_xfer_complete"}, transfer, 1},
        {{"ne3_cl_cpu3_boot"}, started, 1},
        {{"ne3_cl_cpu3_boot", "ne3_cl_cpu3_xfer_cancel"}, started + cancel, 1},
    };
    for (const auto &test : cases) {
        sim_reset();
        ASSERT_EQ(0, va_cl_init());
        for (const char *function : test.failing)
            sim_fail(function, 1,
                     std::strstr(function, "cancel") ? static_cast<int>(0x80000001) : 42);
        EXPECT_EQ(std::make_pair(-1, test.log), boot());
        EXPECT_EQ(test.cancels, calls_of("ne3_cl_cpu3_xfer_cancel"));
    }
}

TEST_F(VanaTest, ReportsTheLoader)
{
    for (const std::string function : {"ne3_cl_library_init", "ne3_cl_sys_open_device"}) {
        sim_reset();
        sim_fail(function, 1, 0xab);
        int result = 0;
        EXPECT_EQ(function + " fail, errno = AB .\n", stdout_of([&] { result = va_cl_init(); }));
        EXPECT_EQ(-1, result);
    }
    const vanaMemInfo info{nullptr,    nullptr,    nullptr, 0x80000000, 0x81000000,
                           0x82000000, 4294967295, 2,       3};
    EXPECT_EQ("programPhysAddress: 0x80000000\nworkPhysAddress:    0x81000000\n"
              "vectorAddress:    0x82000000\npProgramAddress:    (nil)\n"
              "programSize:        4294967295\npWorkAddress:       (nil)\n"
              "workSize:           2\npVectorAddress:        (nil)\nvectorSize:           3\n",
              stdout_of([&] { dump_vana_meminfo(&info); }));
}

TEST_F(VanaTest, TearsDownInOrderWhateverTheState)
{
    EXPECT_EQ("VA: vanafw shutdown failed.\nVA: errno : 0x00000007\n", log_of([&] {
                  sim_fail("ne3_cl_cpu3_shutdown", 1, 7);
                  EXPECT_EQ(0, va_vana_quit(&context));
              }));
    const std::vector<std::string> order{
        "ne3_val_od_stop", "ne3_val_od_close", "ne3_val_fd_stop",     "ne3_val_fd_close",
        "ne3_val_ta_stop", "ne3_val_ta_close", "ne3_val_dis_stop",    "ne3_val_dis_close",
        "ne3_val_close",   "ne3_val_exit",     "ne3_cl_cpu3_shutdown"};
    EXPECT_EQ(order, sim_calls());
}

TEST_F(VanaTest, LogsTheLibrarysRefusal)
{
    for (const std::string function : {"ne3_val_init", "ne3_val_open"}) {
        sim_reset();
        sim_fail(function, 1, 5);
        EXPECT_EQ("VA: va_vana_init: " + function + " fail.\n",
                  log_of([&] { EXPECT_EQ(-1, va_vana_init(&context)); }));
    }
}

} // namespace
