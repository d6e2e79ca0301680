// The backup product's dependency list, written in every section, and its manual uninstall,
// built for support engineers whose normal uninstall has failed.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <list>
#include <string>

#include "collect/spawning.h"
#include "common/string_helpers.h"
#include "frame/app.h"
#include "frame/console.h"
#include "frame/folders.h"
#include "frame/i18n.h"
#include "frame/logging.h"
#include "common/child_process.h"
#include "frame/report.h"
#include "frame/work.h"
#include "products/orb.h"

namespace {

constexpr const char* TEMPLATE_PATH = "var/orb/uninstall_orb.sh.templ";
constexpr const char* SCRIPT_NAME = "uninstall_orb.sh";
constexpr size_t LINE_SIZE = 2048;

/// Writes "gatr: <text>" to standard output.
void say(const char* text) {
    printf("%s: %s\n", PROGRAM_NAME, text);
    fflush(stdout);
}

/// Writes "gatr: <text>" and records the same text.
void tell(const char* text) {
    say(text);
    logError(__FILE__, __LINE__, STATUS_INFORMATION, "%s", text);
}

void abortGeneration() {
    say(_("uninstall script generation failed - check gatr_errors.log for details"));
    logError(__FILE__, __LINE__, STATUS_INFORMATION, "%s", _("aborting script generation"));
}

bool confirmRemoval(bool dryRun) {
    printf("%s: %s\n\n", PROGRAM_NAME, _("manual uninstall of Ironkeep ORB"));
    printf("%s\n\n", _("A manual uninstall of Ironkeep ORB has been requested. This should only \n"
                       "be attempted if requested by Brimwell Support and the normal uninstall of \n"
                       "Ironkeep ORB has failed."));
    if (dryRun) {
        printf("%s\n\n",
               _("As you have requested a 'dry run', only the generation of an uninstall script \n"
                 "for Ironkeep ORB will be performed - no Ironkeep ORB components will \n"
                 "be removed from the system."));
    } else {
        printf("%s\n\n", _("This process will force a reboot of the system."));
    }
    fflush(stdout);
    int answer = getUserConfirmation();
    printf("\n");
    if (answer != 1) {
        tell(_("manual uninstall of Ironkeep ORB cancelled by user"));
        return false;
    }
    logError(__FILE__, __LINE__, STATUS_INFORMATION, "%s",
             _("manual uninstall of Ironkeep ORB confirmed by user"));
    return true;
}

/// The home folder the script works on: the sudo caller's, else this process's.
std::string scriptHome() {
    const char* sudoUser = getenv("SUDO_USER");
    if (sudoUser != nullptr) return std::string("/home/") + sudoUser;
    const char* home = getenv("HOME");
    return home != nullptr ? home : "";
}

/// Copies the template into the script with the placeholders filled in; false (reported)
/// when either file cannot be opened.
bool writeScript(const char* scriptPath, const char* distribution) {
    char templatePath[PATH_SIZE];
    programFile(TEMPLATE_PATH, templatePath, sizeof templatePath);
    File templ(templatePath, "r");
    if (!templ) {
        logFopenFailure(__FILE__, __LINE__, templatePath);
        abortGeneration();
        return false;
    }
    File script(scriptPath, "w");
    if (!script) {
        logFopenFailure(__FILE__, __LINE__, scriptPath);
        abortGeneration();
        return false;
    }
    std::string home = scriptHome();
    readCommandLines(templ.get(), LINE_SIZE, [&](const char* text) {
        char line[LINE_SIZE] = {};
        snprintf(line, sizeof line, "%s", text);
        str_replace(line, sizeof line, "%DISTRIBUTION%", distribution);
        str_replace(line, sizeof line, "%HOME%", home.c_str());
        fputs(line, script.get());
    });
    return true;
}

void runScript(const char* scriptPath) {
    tell(_("executing uninstall script"));
    char command[PATH_SIZE * 3] = {};
    snprintf(command, sizeof command, "sh \"%s\" >\"%s/logs/%s_orb-uninstall.log\" 2>&1",
             scriptPath, work::outputFolder, PROGRAM_NAME);
    std::list<std::string> lines;
    int result = spawnProgram(command, lines);
    for (const std::string& line : lines)
        logError(__FILE__, __LINE__, STATUS_INFORMATION, "%s", line.c_str());
    if (result != 0) {
        say(_("uninstall script execution completed with errors - check gatr_errors.log for details"));
        logError(__FILE__, __LINE__, STATUS_ERROR, "%s",
                 _("uninstall script execution completed with errors"));
    } else {
        tell(_("uninstall script execution completed"));
    }
}

}  // namespace

const char* getOrbDistribution(const char* release) {
    static const struct {
        const char* marker;
        const char* distribution;
    } known[] = {{".el8.", "CENTOS-8"},
                 {".el7.", "CENTOS-7"},
                 {".el7uek.", "CENTOS-7"},
                 {".el6.", "CENTOS-6"}};
    for (const auto& k : known)
        if (strstr(release, k.marker) != nullptr) return k.distribution;
    return "";
}

void removeOrb(bool dryRun) {
    struct utsname host = {};
    uname(&host);
    removeOrb(dryRun, host);
}

void removeOrb(bool dryRun, const struct utsname& system) {
    logError(__FILE__, __LINE__, STATUS_INFORMATION, "%s",
             dryRun ? "--remove orb with --dry-run option specified: only the generation of an "
                      "uninstall script for ORB will be performed"
                    : "--remove orb without --dry-run option specified: a manual uninstall of ORB "
                      "will be performed");
    if (!confirmRemoval(dryRun)) return;
    tell(_("generating uninstall script"));

    const char* distribution = getOrbDistribution(system.release);
    if (distribution[0] == '\0') {
        logError(__FILE__, __LINE__, STATUS_ERROR,
                 "unable to determine the Linux distribution or an unsupported Linux "
                 "distribution: %s [%s]",
                 system.version, system.release);
        // Generation goes on all the same: the script itself refuses an unknown distribution,
        // and support may still want to read it.
        abortGeneration();
    }

    char folder[PATH_SIZE] = {};
    snprintf(folder, sizeof folder, "/opt/Brimwell/%s/scripts", PROGRAM_NAME);
    if (makeDirectory(folder) != 0) {
        abortGeneration();
        return;
    }
    char scriptPath[PATH_SIZE] = {};
    snprintf(scriptPath, sizeof scriptPath, "%s/%s", folder, SCRIPT_NAME);
    if (!writeScript(scriptPath, distribution)) return;
    tell(_("uninstall script generated"));

    if (dryRun) return;
    runScript(scriptPath);
}

void generateDependencyList() {
    logError(__FILE__, __LINE__, STATUS_INFORMATION, "generating ORB dependency list");
    char path[PATH_SIZE] = {};
    snprintf(path, sizeof path, "%s/logs/%s_orb-deplist.log", work::outputFolder, PROGRAM_NAME);
    File file(path, "w");
    if (!file) {
        logFopenFailure(__FILE__, __LINE__, path);
        return;
    }
    fprintf(file.get(), "%s\n\n", _("ORB Dependency List"));
    Pipe pipe("yum deplist orb orb-* kmod-brwvsm-$(uname -r)");
    if (!pipe) {
        // The message names "cat", whatever tool failed to start: what fails here is the shell,
        // and support's notes for this failure look for that one line.
        logPopenFailure(__FILE__, __LINE__, "cat");
        return;
    }
    readCommandLines(pipe.get(), LINE_SIZE, [&](const char* line) { fputs(line, file.get()); });
    pipe.close();
    file.close();
    work::archiveList.push_back(path);
}
