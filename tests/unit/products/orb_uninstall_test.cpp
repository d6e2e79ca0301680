// The manual uninstall (script generation from the shipped template, its run) and the
// dependency list. The uninstall writes under /opt, so it runs in a private mount namespace.
#include <gtest/gtest.h>

#include <sys/utsname.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "orb_test_support.h"
#include "products/orb.h"

namespace {

using orbtest::contains;
using orbtest::readFile;
using orbtest::TempFolder;
using orbtest::writeFile;

const char* const kScript = "/opt/Brimwell/gatr/scripts/uninstall_orb.sh";

TEST(OrbDistribution, KernelReleaseNamesTheDistribution) {
    struct Case {
        const char* release;
        const char* want;
    };
    const Case cases[] = {
        {"4.18.0-305.el8.x86_64", "CENTOS-8"},
        {"4.18.0-348.7.1.el8.x86_64", "CENTOS-8"},
        {"3.10.0-1160.el7.x86_64", "CENTOS-7"},
        {"4.14.35-1902.el7uek.x86_64", "CENTOS-7"},
        {"2.6.32-754.el6.x86_64", "CENTOS-6"},
        {"5.15.0-91-generic", ""},
        {"6.1.0-18-amd64", ""},
        {"4.18.0-305.el8_4.x86_64", ""},
        {"el7", ""},
        {"", ""},
    };
    for (const Case& c : cases) EXPECT_STREQ(c.want, getOrbDistribution(c.release)) << c.release;
}

/// What one removeOrb call left behind, gathered in the private namespace.
struct Outcome {
    std::string stdoutText;
    std::string errors;
    std::string script;
    std::string scriptOutput;
};

/// Runs removeOrb(dryRun) for the release with answer on standard input, from the folder
/// cwd (the stage, which holds the shipped template, when empty).
Outcome runRemoveOrb(bool dryRun, const char* release, const std::string& answer,
                     const char* sudoUser, const std::string& cwd = "") {
    TempFolder scratch;
    const std::string dir = scratch.path();
    writeFile(dir + "/answer", answer);
    std::string status = orbtest::runWithPrivateOpt([&]() -> std::string {
        if (!cwd.empty() && chdir(cwd.c_str()) != 0) return "<chdir>";
        if (sudoUser != nullptr)
            setenv("SUDO_USER", sudoUser, 1);
        else
            unsetenv("SUDO_USER");
        setenv("HOME", "/root", 1);
        snprintf(work::outputFolder, sizeof work::outputFolder, "%s", "/var/opt/Brimwell/gatr");
        (void)!system("mkdir -p /var/opt/Brimwell/gatr/logs");
        if (freopen((dir + "/answer").c_str(), "r", stdin) == nullptr) return "<stdin>";
        if (freopen((dir + "/stdout").c_str(), "w", stdout) == nullptr) return "<stdout>";
        work::errorsOs = fopen((dir + "/errors").c_str(), "w");
        struct utsname host = {};
        snprintf(host.release, sizeof host.release, "%s", release);
        snprintf(host.version, sizeof host.version, "%s", "#1 SMP test");
        removeOrb(dryRun, host);
        fflush(stdout);
        fclose(work::errorsOs);
        (void)!system(("cp " + std::string(kScript) + " '" + dir + "/script' 2>/dev/null; " +
                       "cp /var/opt/Brimwell/gatr/logs/gatr_orb-uninstall.log '" + dir +
                       "/script-output' 2>/dev/null")
                          .c_str());
        return "done";
    });
    Outcome out;
    if (status != "done") {
        out.stdoutText = status;
        return out;
    }
    out.stdoutText = readFile(dir + "/stdout");
    out.errors = readFile(dir + "/errors");
    out.script = readFile(dir + "/script");
    out.scriptOutput = readFile(dir + "/script-output");
    return out;
}

const char* const kDryRunDialogue =
    "gatr: manual uninstall of Ironkeep ORB\n"
    "\n"
    "A manual uninstall of Ironkeep ORB has been requested. This should only \n"
    "be attempted if requested by Brimwell Support and the normal uninstall of \n"
    "Ironkeep ORB has failed.\n"
    "\n"
    "As you have requested a 'dry run', only the generation of an uninstall script \n"
    "for Ironkeep ORB will be performed - no Ironkeep ORB components will \n"
    "be removed from the system.\n"
    "\n"
    "Do you wish to proceed y[es] or n[o]?: \n";

TEST(OrbRemove, DryRunWritesTheScriptForTheDistributionAndStops) {
    Outcome out = runRemoveOrb(true, "3.10.0-1160.el7.x86_64", "yes\n", "alice");
    if (out.stdoutText == "<no namespace>") GTEST_SKIP() << "needs root for a mount namespace";
    EXPECT_EQ(std::string(kDryRunDialogue) +
                  "gatr: generating uninstall script\n"
                  "gatr: uninstall script generated\n",
              out.stdoutText);
    EXPECT_TRUE(contains(out.script, "\nDISTRIBUTION=\"CENTOS-7\"\nUSER_HOME=\"/home/alice\"\n"));
    EXPECT_EQ(std::string::npos, out.script.find('%' + std::string("DISTRIBUTION%")));
    EXPECT_EQ(std::string::npos, out.script.find("%HOME%"));
    EXPECT_EQ("<missing>", out.scriptOutput);
    EXPECT_TRUE(contains(out.errors, " --remove orb with --dry-run option specified: only the "
                                     "generation of an uninstall script for ORB will be performed\n"));
    EXPECT_TRUE(contains(out.errors, " manual uninstall of Ironkeep ORB confirmed by user\n"));
    EXPECT_TRUE(contains(out.errors, " generating uninstall script\n"));
    EXPECT_TRUE(contains(out.errors, " uninstall script generated\n"));
    EXPECT_EQ(std::string::npos, out.errors.find("ERROR"));
}

TEST(OrbRemove, ScriptIsTheTemplateWithOnlyThePlaceholdersReplaced) {
    Outcome out = runRemoveOrb(true, "4.18.0-305.el8.x86_64", "y\n", "alice");
    if (out.stdoutText == "<no namespace>") GTEST_SKIP() << "needs root for a mount namespace";
    std::string templ = readFile("./var/orb/uninstall_orb.sh.templ");
    ASSERT_NE("<missing>", templ) << "the unit tests run from the staged program folder";
    size_t at;
    while ((at = templ.find("%DISTRIBUTION%")) != std::string::npos) templ.replace(at, 14, "CENTOS-8");
    while ((at = templ.find("%HOME%")) != std::string::npos) templ.replace(at, 6, "/home/alice");
    EXPECT_EQ(templ, out.script);
}

TEST(OrbRemove, EachReleaseGivesItsDistributionAndTheCallersHome) {
    struct Case {
        const char* release;
        const char* sudoUser;
        const char* lines;
    };
    const Case cases[] = {
        {"2.6.32-754.el6.x86_64", "bob", "DISTRIBUTION=\"CENTOS-6\"\nUSER_HOME=\"/home/bob\"\n"},
        {"4.14.35-1902.el7uek.x86_64", nullptr, "DISTRIBUTION=\"CENTOS-7\"\nUSER_HOME=\"/root\"\n"},
        {"4.18.0-305.el8.x86_64", "carol", "DISTRIBUTION=\"CENTOS-8\"\nUSER_HOME=\"/home/carol\"\n"},
    };
    for (const Case& c : cases) {
        Outcome out = runRemoveOrb(true, c.release, "Y\n", c.sudoUser);
        if (out.stdoutText == "<no namespace>") GTEST_SKIP() << "needs root for a mount namespace";
        EXPECT_TRUE(contains(out.script, c.lines)) << c.release;
    }
}

TEST(OrbRemove, UnknownDistributionIsReportedAndTheScriptStillGenerated) {
    Outcome out = runRemoveOrb(true, "5.15.0-91-generic", "y\n", "alice");
    if (out.stdoutText == "<no namespace>") GTEST_SKIP() << "needs root for a mount namespace";
    EXPECT_EQ(std::string(kDryRunDialogue) +
                  "gatr: generating uninstall script\n"
                  "gatr: uninstall script generation failed - check gatr_errors.log for details\n"
                  "gatr: uninstall script generated\n",
              out.stdoutText);
    EXPECT_TRUE(contains(out.errors, " ERROR                unable to determine the Linux "
                                     "distribution or an unsupported Linux distribution: "
                                     "#1 SMP test [5.15.0-91-generic]\n"));
    EXPECT_TRUE(contains(out.errors, " aborting script generation\n"));
    EXPECT_TRUE(contains(out.script, "\nDISTRIBUTION=\"\"\nUSER_HOME=\"/home/alice\"\n"));
}

TEST(OrbRemove, DeclinedConfirmationWritesNoScript) {
    Outcome out = runRemoveOrb(false, "4.18.0-305.el8.x86_64", "maybe\nno\n", "alice");
    if (out.stdoutText == "<no namespace>") GTEST_SKIP() << "needs root for a mount namespace";
    EXPECT_EQ("gatr: manual uninstall of Ironkeep ORB\n"
              "\n"
              "A manual uninstall of Ironkeep ORB has been requested. This should only \n"
              "be attempted if requested by Brimwell Support and the normal uninstall of \n"
              "Ironkeep ORB has failed.\n"
              "\n"
              "This process will force a reboot of the system.\n"
              "\n"
              "Do you wish to proceed y[es] or n[o]?: Do you wish to proceed y[es] or n[o]?: \n"
              "gatr: manual uninstall of Ironkeep ORB cancelled by user\n",
              out.stdoutText);
    EXPECT_EQ("<missing>", out.script);
    EXPECT_TRUE(contains(out.errors, " --remove orb without --dry-run option specified: a manual "
                                     "uninstall of ORB will be performed\n"));
    EXPECT_TRUE(contains(out.errors, " manual uninstall of Ironkeep ORB cancelled by user\n"));
}

TEST(OrbRemove, MissingTemplateEndsBeforeTheScriptIsCreated) {
    TempFolder elsewhere;
    Outcome out = runRemoveOrb(true, "4.18.0-305.el8.x86_64", "y\n", "alice", elsewhere.path());
    if (out.stdoutText == "<no namespace>") GTEST_SKIP() << "needs root for a mount namespace";
    EXPECT_EQ(std::string(kDryRunDialogue) +
                  "gatr: generating uninstall script\n"
                  "gatr: uninstall script generation failed - check gatr_errors.log for details\n",
              out.stdoutText);
    EXPECT_EQ("<missing>", out.script);
    EXPECT_TRUE(contains(out.errors, " ERROR                fopen on "
                                     "./var/orb/uninstall_orb.sh.templ failed: No such file or "
                                     "directory\n"));
    EXPECT_TRUE(contains(out.errors, " aborting script generation\n"));
}

// The shipped template removes the product for real, so runs are tested with stand-in
// templates in a folder of their own.
TEST(OrbRemove, ScriptRunWritesItsOutputLogAndReportsTheResult) {
    struct Case {
        const char* templ;
        const char* ending;
        const char* record;
    };
    const Case cases[] = {
        {"echo \"removing on %DISTRIBUTION% for %HOME%\"\nexit 0\n",
         "gatr: uninstall script execution completed\n", " uninstall script execution completed\n"},
        {"echo \"half done on %DISTRIBUTION%\"\nexit 3\n",
         "gatr: uninstall script execution completed with errors - check gatr_errors.log for "
         "details\n",
         " ERROR                uninstall script execution completed with errors\n"},
    };
    for (const Case& c : cases) {
        TempFolder program;
        writeFile(program.path() + "/var/orb/uninstall_orb.sh.templ", c.templ);
        Outcome out = runRemoveOrb(false, "4.18.0-305.el8.x86_64", "y\n", "dave", program.path());
        if (out.stdoutText == "<no namespace>") GTEST_SKIP() << "needs root for a mount namespace";
        EXPECT_TRUE(contains(out.stdoutText, "gatr: uninstall script generated\n"
                                             "gatr: executing uninstall script\n" +
                                                 std::string(c.ending)))
            << c.templ;
        EXPECT_TRUE(contains(out.errors, c.record)) << c.templ;
        EXPECT_TRUE(contains(out.errors, " executing uninstall script\n")) << c.templ;
        EXPECT_TRUE(contains(out.scriptOutput, "on CENTOS-8")) << c.templ;
    }
}

class OrbDependencyList : public ::testing::Test {
protected:
    void SetUp() override {
        const char* path = getenv("PATH");
        savedPath = path != nullptr ? path : "";
        setenv("PATH", (tools.path() + ":" + savedPath).c_str(), 1);
    }
    void TearDown() override { setenv("PATH", savedPath.c_str(), 1); }

    std::string savedPath;
    TempFolder tools;
    TempFolder output;
};

TEST_F(OrbDependencyList, YumOutputIsCopiedUnderTheHeadingAndArchived) {
    // The stand-in prints its arguments, then two complete lines and one without a newline,
    // which the list drops like every reader of command output.
    writeFile(tools.path() + "/yum",
              "#!/bin/sh\n"
              "echo \"args: $*\"\n"
              "echo 'package: orb.x86_64 2.1.0-7.el8'\n"
              "printf '  dependency: glibc\\n  provider: glibc.x86_64 2.28'\n",
              0755);
    orbtest::OutputFolder folder(output.path());
    orbtest::ErrorLog errors;
    generateDependencyList();
    std::string file = output.path() + "/logs/gatr_orb-deplist.log";
    struct utsname host = {};
    uname(&host);
    EXPECT_EQ(std::string("ORB Dependency List\n\n") + "args: deplist orb orb-* kmod-brwvsm-" +
                  host.release + "\n" +
                  "package: orb.x86_64 2.1.0-7.el8\n"
                  "  dependency: glibc\n",
              readFile(file));
    EXPECT_EQ((std::list<std::string>{file}), work::archiveList);
    EXPECT_TRUE(contains(errors.text(), " information          generating ORB dependency list\n"));
}

TEST_F(OrbDependencyList, MissingPackageToolLeavesTheHeadingOnly) {
    orbtest::OutputFolder folder(output.path());
    writeFile(tools.path() + "/uname", "#!/bin/sh\necho 1.0-test\n", 0755);
    // Only the stand-in uname is left on the path: the package tool is missing.
    setenv("PATH", tools.path().c_str(), 1);
    orbtest::ErrorLog errors;
    generateDependencyList();
    std::string file = output.path() + "/logs/gatr_orb-deplist.log";
    EXPECT_EQ("ORB Dependency List\n\n", readFile(file));
    EXPECT_EQ((std::list<std::string>{file}), work::archiveList);
}

TEST_F(OrbDependencyList, UnwritableLogsFolderIsLoggedAndNothingArchived) {
    orbtest::OutputFolder folder(output.path() + "/absent");
    (void)!system(("rm -rf '" + output.path() + "/absent'").c_str());
    orbtest::ErrorLog errors;
    generateDependencyList();
    EXPECT_TRUE(work::archiveList.empty());
    EXPECT_TRUE(contains(errors.text(), " ERROR                fopen on " + output.path() +
                                            "/absent/logs/gatr_orb-deplist.log failed: No such "
                                            "file or directory\n"));
}

}  // namespace
