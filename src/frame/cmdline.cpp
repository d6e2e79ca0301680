// The command-line scanner and the usage text.
#include "frame/cmdline.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "frame/app.h"
#include "frame/limits.h"
#include "frame/i18n.h"
#include "frame/work.h"

namespace {

[[noreturn]] void failWith(const char* message) {
    fprintf(stderr, "%s: %s\n", PROGRAM_NAME, message);
    exit(1);
}

[[noreturn]] void failWithArgument(const char* message, const char* argument) {
    fprintf(stderr, "%s: %s: %s\n", PROGRAM_NAME, message, argument);
    exit(1);
}

bool is(const char* argument, const char* longName, const char* shortName = nullptr) {
    return strcmp(argument, longName) == 0 || (shortName != nullptr && strcmp(argument, shortName) == 0);
}

void printExtendedVersion() {
    printf("%s %s %s\n", PROGRAM_NAME, PROGRAM_VERSION, PROGRAM_BUILD_TIME);
    printf("%s GCC %s\n", _("Built with"), __VERSION__);
}

void addArchivePath(const char* path) {
    char entry[PATH_SIZE] = {};
    absolutePath(path, entry, sizeof entry);
    work::archiveList.push_back(entry);
}

}  // namespace

void printUsage() {
    const char* fileOrFolder = _("file or folder");
    printf("%s\n\n", PROGRAM_TITLE);
    printf("Usage: gatr [-i <%s>] [-A|--no-archive] [-C|--no-check] [-s|--silent]\n", fileOrFolder);
    printf("           [--orb-threads] [--obfuscate] [--normal-priority]\n");
    printf("           [--since <days|YYYY-MM-DD>] [--max-log-size <MiB>] [--estimate]\n\n");
    printf("       gatr --hash sha256 <%s>\n", fileOrFolder);
    printf("       gatr --hash sha1 <%s>\n", fileOrFolder);
    printf("       gatr --hash md5 <%s>\n\n", fileOrFolder);
    printf("       gatr -h|--help\n\n");
    printf("       gatr -u|--upload-ftp <%s> <%s> <%s>\n", _("support region"), _("case number"),
           _("archive file"));
    printf("           [-v|--verbose]\n\n");
    printf("       gatr [-V|--version]|[-X|--extended-version]\n\n");
}

void parseCommandLine(int argc, char** argv) {
    bool optionsAllowed = true;
    for (int i = 1; i < argc; ++i) {
        const char* current = argv[i];
        if (strcmp(current, "--") == 0) {
            optionsAllowed = false;
            continue;
        }
        if (!optionsAllowed || current[0] != '-' || strcmp(current, "-") == 0) {
            failWithArgument(_("invalid non-option argument specified"), current);
        }

        // The comparisons below are not exclusive: after an option that takes arguments, the
        // last argument it took is compared with the options that follow it in this list.
        bool matched = false;
        if (is(current, "--help", "-h")) {
            printUsage();
            exit(0);
        }
        if (is(current, "--version", "-V")) {
            printf("%s\n", PROGRAM_VERSION);
            exit(0);
        }
        if (is(current, "--extended-version", "-X")) {
            printExtendedVersion();
            exit(0);
        }
        if (is(current, "--debug-archive")) {
            work::options |= OPT_DEBUG_ARCHIVE;
            matched = true;
        }
        if (is(current, "--dry-run")) {
            work::options |= OPT_DRY_RUN;
            matched = true;
        }
        if (is(current, "--hash")) {
            if (argc - i - 1 < 2) {
                failWith(_("option --hash missing the arguments message digest algorithm and file "
                           "or folder to hash"));
            }
            const char* algorithm = argv[i + 1];
            if (strcmp(algorithm, "sha256") == 0) {
                work::options |= OPT_HASH_SHA256;
            } else if (strcmp(algorithm, "sha1") == 0) {
                work::options |= OPT_HASH_SHA1;
            } else if (strcmp(algorithm, "md5") == 0) {
                work::options |= OPT_HASH_MD5;
            } else {
                failWithArgument(_("invalid message digest algorithm specified"), algorithm);
            }
            work::options |= OPT_NO_CHECK;
            work::hashPathname = argv[i + 2];
            i += 2;
            current = argv[i];
            matched = true;
        }
        if (is(current, "--no-archive", "-A")) {
            work::options |= OPT_NO_ARCHIVE;
            matched = true;
        }
        if (is(current, "--no-check", "-C")) {
            work::options |= OPT_NO_CHECK;
            matched = true;
        }
        if (is(current, "--silent", "-s")) {
            work::options |= OPT_SILENT;
            matched = true;
        }
        if (is(current, "--obfuscate")) {
            work::options |= OPT_OBFUSCATE;
            matched = true;
        }
        if (is(current, "--orb-threads")) {
            work::options |= OPT_ORB_THREADS;
            matched = true;
        }
        if (is(current, "--normal-priority")) {
            work::options |= OPT_NORMAL_PRIORITY;
            matched = true;
        }
        if (is(current, "--estimate")) {
            work::options |= OPT_ESTIMATE;
            matched = true;
        }
        if (is(current, "--since") || is(current, "--max-log-size")) {
            bool since = is(current, "--since");
            if (i + 1 >= argc) failWithArgument(_("option missing required argument"), current);
            const char* value = argv[++i];
            bool valid = since ? parseSince(value, time(nullptr), work::limits.since)
                               : parseMebibytes(value, work::limits.maxLogBytes);
            if (!valid) {
                failWithArgument(since ? _("invalid --since value specified, expected a number of "
                                           "days or a date YYYY-MM-DD not in the future")
                                       : _("invalid --max-log-size value specified, expected a "
                                           "whole number of MiB"),
                                 value);
            }
            work::options |= since ? OPT_SINCE : OPT_MAX_LOG_SIZE;
            current = argv[i];
            matched = true;
        }
        if (is(current, "--upload-ftp", "-u")) {
            if (argc - i - 1 < 3) {
                failWith(_("option --upload-ftp missing the arguments support region, case number "
                           "and archive file to upload"));
            }
            work::options |= OPT_UPLOAD_FTP | OPT_NO_CHECK;
            work::ftpRegion = argv[i + 1];
            work::ftpCaseNumber = argv[i + 2];
            // Absolute, so that the log and the case record name the file the user meant.
            static char archive[PATH_SIZE];
            work::ftpArchiveFileName = absolutePath(argv[i + 3], archive, sizeof archive);
            i += 3;
            current = argv[i];
            matched = true;
        }
        bool verbose = is(current, "--verbose", "-v");
        if (verbose) work::options |= OPT_VERBOSE;

        if (!verbose) {
            if (strncmp(current, "--", 2) == 0) {
                if (!matched) failWithArgument(_("invalid option argument specified"), current);
            } else if (strncmp(current, "-i", 2) == 0) {
                // handled below
            } else if (matched) {
                continue;
            } else if (current[0] == '-') {
                for (const char* letter = current + 1; *letter != '\0'; ++letter) {
                    switch (*letter) {
                    case 'C': work::options |= OPT_NO_CHECK; break;
                    case 's': work::options |= OPT_SILENT; break;
                    case 'v': work::options |= OPT_VERBOSE; break;
                    case 'A': work::options |= OPT_NO_ARCHIVE; break;
                    default:
                        fprintf(stderr, "%s: %s: -%c\n", PROGRAM_NAME,
                                _("invalid option argument specified"), *letter);
                        exit(1);
                    }
                }
            }
        }

        if (strncmp(current, "-i", 2) == 0) {
            if (current[2] != '\0') {
                addArchivePath(current + 2);
            } else {
                if (i + 1 >= argc) failWith(_("option -i missing required argument"));
                addArchivePath(argv[++i]);
            }
        }
    }
    if ((work::options & OPT_EXCLUDE_VSS) && (work::options & OPT_FORCE_VSS)) {
        failWith(_("options --exclude-vss and --force-vss are mutually exclusive"));
    }
}
