#include "tests/support/firmware.h"
#include "tests/support/va_fixture.h"
#include "va/coprocessor.h"
#include "va/report.h"

#include <sys/stat.h>

namespace
{

struct VanaTest : VaTest {
    VanaTest()
    {
        sim_reset();
        use_sensor("imx122");
    }

    void use_sensor(const char *name)
    {
        std::snprintf(context.sensorConf.sensor, sizeof context.sensorConf.sensor, "%s", name);
    }

    int boot()
    {
        return run([this] { return va_vana_boot(&context); });
    }
};

TEST_F(VanaTest, LoadsEveryImageToItsPlace)
{
    const std::uint32_t offset = SIM_PROGRAM_SIZE - 7; // the program ends where its area ends
    files.write("firmware/vanafw.bin",
                firmware({6, SIM_PROGRAM_ADDRESS + offset, 7}, "vectorprogram"));
    files.write("firmware/vabi_1920x1080.dat",
                work_data(SIM_WORK_ADDRESS + 8, 4, "work, and more"));
    ASSERT_EQ(0, va_cl_init());
    for (const char *name : {"imx140", "IMX140LA"}) {
        use_sensor(name);
        EXPECT_EQ(0, boot());
        EXPECT_EQ("", log);
        va_vana_shutdown(&context);
    }

    const auto text_at = [](const std::vector<unsigned char> &area, std::size_t at, std::size_t n) {
        return std::string(reinterpret_cast<const char *>(area.data()) + at, n);
    };
    EXPECT_EQ("vector", text_at(sim_state().areas.value().vector, 0, 6));
    EXPECT_EQ("program", text_at(sim_state().areas.value().program, offset, 7));
    EXPECT_EQ(std::string("work\0", 5), text_at(sim_state().areas.value().work, 8, 5));
}

TEST_F(VanaTest, RefusesBadFiles)
{
    const std::string no_header = "VA: va_vana_boot: error read.\n";
    const std::string no_program = "VA: va_vana_boot: vanafw read program failed.\n";
    const std::string no_work = "VA: va_vana_boot: vana config read program failed.\n";
    const std::uint32_t at = SIM_PROGRAM_ADDRESS;
    const std::string good = firmware({6, at, 7}, "vectorprogram");
    const std::string good_work = work_data(SIM_WORK_ADDRESS, 4, "work");
    const std::string plenty(SIM_PROGRAM_SIZE + SIM_VECTOR_SIZE + 16, 'x');
    const struct {
        const char *what;
        std::string firmware, work, log;
    } cases[] = {
        {"short header", good.substr(0, 127), good_work, no_header},
        {"over the end", firmware({8, at + 1, SIM_PROGRAM_SIZE}, plenty), good_work, no_program},
        {"nothing to run", firmware({6, at, 0}, "vector"), good_work, no_program},
        {"truncated work data", good, good_work.substr(0, good_work.size() - 1), no_work},
    };
    ASSERT_EQ(0, va_cl_init());
    for (const auto &test : cases) {
        SCOPED_TRACE(test.what);
        files.write("firmware/vanafw.bin", test.firmware);
        files.write("firmware/vabi_1920x1080.dat", test.work);
        EXPECT_EQ(-1, boot());
        EXPECT_EQ(test.log, log);
    }
    for (const std::string name : {"firmware/vabi_1920x1080.dat", "firmware/vanafw.bin"}) {
        std::filesystem::remove(files.file(name));
        EXPECT_EQ(-1, boot()) << "and nobody is told";
        VaReport report;
        context.report = &report;
        EXPECT_EQ(-1, boot());
        EXPECT_EQ(name + ": No such file or directory", report.health.record().boot_failure.text);
        mkfifo(files.file(name).c_str(), 0600);
        EXPECT_EQ(-1, boot());
        EXPECT_EQ(name + ": not a regular file", report.health.record().boot_failure.text);
        EXPECT_EQ("", log);
        context.report = nullptr;
    }
    EXPECT_EQ(0, calls_of("ne3_cl_cpu3_xfer_complete"));

    for (const char *name : {"imx14", "imx140lab", ""}) {
        use_sensor(name);
        EXPECT_EQ(-1, boot());
        EXPECT_EQ("VA: va_vana_boot: Sensor " + std::string(name) + " is not supported\n", log);
    }
}

TEST_F(VanaTest, LogsEachRefusedCall)
{
    const std::string code = "VA: errno : 0x8000002A\n";
    const struct {
        std::vector<const char *> failing;
        std::string told; // in the log, or on standard output
        int cancels;
    } cases[] = {
        {{"ne3_cl_library_init"}, "ne3_cl_library_init fail, errno = 8000002A .\n", 0},
        {{"ne3_cl_sys_open_device"}, "ne3_cl_sys_open_device fail, errno = 8000002A .\n", 0},
        {{"ne3_cl_cpu3_get_memory_info"}, "VA: Failed to get vana memory info.\n" + code, 0},
        {{"ne3_cl_cpu3_xfer_complete"}, "VA: vanafw transfer failed.\n" + code, 1},
        {{"ne3_cl_cpu3_boot"}, "VA: vanafw boot failed.\n" + code, 1},
        {{"ne3_cl_cpu3_boot", "ne3_cl_cpu3_xfer_cancel"},
         "VA: vanafw boot failed.\n" + code + "VA: vanafw transfer cancel failed.\n" + code,
         1},
        {{"ne3_val_init"}, "VA: va_vana_init: ne3_val_init fail.\n", 0},
        {{"ne3_val_open"}, "VA: va_vana_init: ne3_val_open fail.\n", 0},
        {{"ne3_cl_cpu3_shutdown"}, "VA: vanafw shutdown failed.\n" + code, 0},
    };
    for (const auto &test : cases) {
        SCOPED_TRACE(test.failing.back());
        sim_reset();
        for (const char *function : test.failing)
            sim_fail(function, 1, static_cast<int>(0x8000002a));
        EXPECT_EQ(-1, run([&] {
            const bool started =
                va_cl_init() == 0 && va_vana_boot(&context) == 0 && va_vana_init(&context) == 0;
            return started ? va_vana_shutdown(&context) : -1;
        }));
        EXPECT_EQ(test.told, log.empty() ? output : log);
        EXPECT_EQ(test.cancels, calls_of("ne3_cl_cpu3_xfer_cancel"));
    }
}

} // namespace
