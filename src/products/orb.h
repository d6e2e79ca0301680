// The backup product (Ironkeep ORB) section: detection and facts, the configuration reports
// drawn from the product's local REST service, the thread dump, the dependency list and the
// manual uninstall. Every report writes to work::logOs and never stops the section.
#pragma once

#include <sys/utsname.h>

#include "json/jsonparser.h"

constexpr const char* ORB_CONFIG_FILE = "/etc/opt/Brimwell/orb/orb_config.json";
constexpr const char* ORB_SERVICE_EXECUTABLE = "/opt/Brimwell/orb/bin/orb_service";
constexpr const char* ORB_HOME = "/opt/Brimwell/orb";
/// Seconds between two thread-dump iterations (three are taken).
constexpr unsigned ORB_THREAD_DUMP_PAUSE = 5;

/// Reads the REST port (13581 when absent or 0) and the admin token (cut to tokenSize-1) from
/// the product's configuration file and asks the service for its API version (cut to
/// apiVersionSize-1). Both buffers are zeroed first, so an empty token or version shows a
/// failure; port is left alone when the file cannot be loaded. Logs only through the JSON
/// and transfer layers; never logs the token.
void getOrbParameters(int& port, char* token, unsigned long tokenSize, char* apiVersion,
                      unsigned long apiVersionSize);

/// Writes "Configuration:" and the notifications, jobs and destinations reports.
void getOrbConfiguration(int port, const char* token, const char* apiVersion);

/// The notifications and SMTP report: fetches both documents, then writes the layout.
void getOrbConfigurationNotifications(int port, const char* token, const char* apiVersion);
/// The backup jobs report: fetches the system, volume, destination and backup documents.
void getOrbConfigurationJobs(int port, const char* token, const char* apiVersion);
/// The destinations report.
void getOrbConfigurationDestinations(int port, const char* token, const char* apiVersion);

/// The report layouts from answers already fetched (the service-free half of each report).
/// writeOrbNotifications takes the mail server answer as text: it is parsed only when e-mail
/// is switched on, and a failure to parse it writes the failure line.
void writeOrbNotifications(JsonDocument& notify, const char* smtpAnswer);
/// Writes every job of backups, looking up destinations and volumes; logs (warning) a volume
/// without an id and skips it.
void writeOrbJobs(JsonDocument& volumes, JsonDocument& destinations, JsonDocument& backups);
/// Writes one row per destination and the closing newline.
void writeOrbDestinations(JsonDocument& destinations);

/// Asks the service for its threads three times, ORB_THREAD_DUMP_PAUSE seconds apart, into
/// "<output>/logs/gatr_orb-threadsdump.log", which is archived whatever the answers were.
/// Logs (error) a file that cannot be opened and returns.
void generateOrbThreadDump(int port, const char* token);
/// The same with the pause given in seconds.
void generateOrbThreadDump(int port, const char* token, unsigned pauseSeconds);

/// Writes "yum deplist" of the product's packages to "<output>/logs/gatr_orb-deplist.log" and
/// archives it; logs (error) a file or pipe that cannot be opened and returns.
void generateDependencyList();

/// The distribution name written into the uninstall script for a kernel release string:
/// "CENTOS-8", "CENTOS-7", "CENTOS-6", or "" when none is recognised.
const char* getOrbDistribution(const char* release);

/// The manual uninstall: asks for confirmation, writes the uninstall script from
/// ./var/orb/uninstall_orb.sh.templ and, unless dryRun, runs it. Talks on standard output,
/// records every step in the error log, never exits.
void removeOrb(bool dryRun);
/// The same for the given system identification instead of the running kernel's.
void removeOrb(bool dryRun, const struct utsname& system);
