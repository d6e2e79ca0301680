// The manual uninstall, which no run mode calls yet; the shipped template runs only dry: it reboots.
#include <linux/magic.h>
#include <sys/resource.h>
#include <sys/statfs.h>
#include <unistd.h>
#include "products/orb.h"
#include "test_support.h"

static const std::string kWarning = "gatr: manual uninstall of Ironkeep ORB\n\nA manual uninstall of Ironkeep ORB has "
    "been requested. This should only \nbe attempted if requested by Brimwell Support and the normal uninstall of \n"
    "Ironkeep ORB has failed.\n\n";
static const std::string kDryOut = kWarning + "As you have requested a 'dry run', only the generation of an uninstall "
    "script \nfor Ironkeep ORB will be performed - no Ironkeep ORB components will \nbe removed from the system.\n\n"
    "Do you wish to proceed y[es] or n[o]?: \ngatr: generating uninstall script\n";
static const std::string kRealOut = kWarning + "This process will force a reboot of the system.\n\n"
    "Do you wish to proceed y[es] or n[o]?: \n";
static const std::string kGoOn = "manual uninstall of Ironkeep ORB confirmed by user\ngenerating uninstall script\n";
static const std::string kDryLog = "--remove orb with --dry-run option specified: only the generation of an "
    "uninstall script for ORB will be performed\n" + kGoOn;
static const std::string kRealLog = "--remove orb without --dry-run option specified: a manual uninstall of ORB "
    "will be performed\n";

TEST(RemoveOrb, TalksRecordsAndWritesTheScriptForTheDistribution) {
    struct statfs opt = {};
    if (statfs("/opt", &opt) != 0 || opt.f_type != TMPFS_MAGIC) GTEST_SKIP() << "writes under /opt: sandbox only";
    const std::string kNone = "<missing>";
    const struct { bool dryRun; const char* release; const char* answer; const char* standIn; std::string out, script,
                   log, ran; } kCases[] = {  // the shipped template when there is no stand-in
        {true, "3.10.0-1160.el7.x86_64", "yes\n", nullptr, kDryOut + "gatr: uninstall script generated\n",
         "\nDISTRIBUTION=\"CENTOS-7\"\nUSER_HOME=\"/home/alice\"\n", kDryLog + "uninstall script generated\n", kNone},
        // An unknown distribution is reported as an abort, and the script is written all the same.
        {true, "5.15.0-91-generic", "Y\n", nullptr, kDryOut + "gatr: uninstall script generation failed - check "
         "gatr_errors.log for details\ngatr: uninstall script generated\n", "\nDISTRIBUTION=\"\"\n", kDryLog +
         "unable to determine the Linux distribution or an unsupported Linux distribution: #1 SMP test "
         "[5.15.0-91-generic]\naborting script generation\nuninstall script generated\n", kNone},
        {false, "4.18.0-305.el8.x86_64", "no\n", nullptr, kRealOut + "gatr: manual uninstall of Ironkeep ORB "
         "cancelled by user\n", kNone, kRealLog + "manual uninstall of Ironkeep ORB cancelled by user\n", kNone},
        // Input that ends without an answer is a "no", asked once more after an empty line.
        {false, "4.18.0-305.el8.x86_64", "\n", nullptr, kWarning + "This process will force a reboot of the system.\n\n"
         "Do you wish to proceed y[es] or n[o]?: Do you wish to proceed y[es] or n[o]?: \ngatr: manual uninstall of "
         "Ironkeep ORB cancelled by user\n", kNone, kRealLog + "manual uninstall of Ironkeep ORB "
         "cancelled by user\n", kNone},
        // The stand-in's last line, without a newline, is dropped like any command output's.
        {false, "2.6.32-754.el6.x86_64", "y\n", "echo \"%DISTRIBUTION% for %HOME%\"\nexit 3\necho dropped",
         kRealOut + "gatr: generating uninstall script\ngatr: uninstall script generated\ngatr: executing "
         "uninstall script\ngatr: uninstall script execution completed with errors - check gatr_errors.log for "
         "details\n", "echo \"CENTOS-6 for /home/alice\"\nexit 3\n", kRealLog + kGoOn + "uninstall script "
         "generated\nexecuting uninstall script\ncall to sh failed: exit code is 768\n\nuninstall script execution "
         "completed with errors\n", "CENTOS-6 for /home/alice\n"},
    };
    const std::string stage = std::filesystem::current_path(), script = "/opt/Brimwell/gatr/scripts/uninstall_orb.sh";
    ts::EnvScope sudo("SUDO_USER", "alice");
    // A question asked for ever must end the test, not fill the disk with its captured output.
    struct rlimit unbounded = {}, bounded = {16 << 20, 16 << 20};
    getrlimit(RLIMIT_FSIZE, &unbounded);
    setrlimit(RLIMIT_FSIZE, &bounded);
    for (const auto& c : kCases) {
        ts::TempDir output, program;
        ts::EnvScope path("PATH", c.standIn ? getenv("PATH") : program.path.c_str());  // no sh for the shipped one
        snprintf(work::outputFolder, sizeof work::outputFolder, "%s", output.path.c_str());
        output.write("logs/.keep", "");
        if (c.standIn != nullptr) program.write("var/orb/uninstall_orb.sh.templ", c.standIn);
        snprintf(work::programFolder, sizeof work::programFolder, "%s", (c.standIn ? program.path : stage).c_str());
        ASSERT_NE(nullptr, freopen(program.write("answer", c.answer).c_str(), "r", stdin));
        std::filesystem::remove(script);
        struct utsname host = {};
        snprintf(host.release, sizeof host.release, "%s", c.release);
        snprintf(host.version, sizeof host.version, "%s", "#1 SMP test");
        ts::ErrorLog log;
        testing::internal::CaptureStdout();
        removeOrb(c.dryRun, host);
        fflush(stdout);
        EXPECT_EQ(c.out, testing::internal::GetCapturedStdout()) << c.release;
        EXPECT_EQ(c.log, log.messages()) << c.release;
        const std::string written = ts::readFile(script);
        EXPECT_TRUE(c.standIn ? written == c.script : written.find(c.script) != std::string::npos) << written;
        EXPECT_TRUE(written.find("%HOME%") == std::string::npos && written.find("%DISTRIBUTION%") == std::string::npos);
        EXPECT_EQ(c.ran, ts::readFile(output.path + "/logs/gatr_orb-uninstall.log")) << c.release;
    }
    setrlimit(RLIMIT_FSIZE, &unbounded);
}
