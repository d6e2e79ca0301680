// The backup product's jobs report: the fetches, and each job's state, destination,
// compression, encryption, comment and volumes; the schedule and advanced blocks have
// their own files.
#include "products/orb_jobs.h"

#include <cstdarg>
#include <cstring>

#include "frame/i18n.h"
#include "frame/logging.h"
#include "frame/work.h"
#include "products/orb.h"
#include "products/orb_rest.h"

namespace {

constexpr int STATE_QUEUED = 0;
constexpr int STATE_RUNNING = 1;
constexpr int STATE_PAUSED = 5;

const char* compressionLabel(int code) {
    switch (code) {
    case 0: return _("none");
    case 5: return _("Standard");
    case 6: return _("Best");
    default: return nullptr;
    }
}

const char* encryptionLabel(int code) {
    switch (code) {
    case 0: return _("none");
    case 2: return _("RC4 128-bit (fast)");
    case 3: return _("AES 128-bit (more secure)");
    case 4: return _("AES 256-bit (most secure)");
    default: return nullptr;
    }
}

const char* volumeSchemeLabel(int code) {
    switch (code) {
    case 0: return _("all volumes");
    case 1: return _("Operating System volumes");
    case 2: return _("data volumes");
    case 3: return _("custom");
    default: return nullptr;
    }
}

/// A labelled code: the label where the code has one, else the number.
void writeCode(FILE* out, const char* format, const char* numberFormat, const char* label,
               const char* word, int code) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    if (word != nullptr)
        fprintf(out, format, label, word);
    else
        fprintf(out, numberFormat, label, code);
#pragma GCC diagnostic pop
}

/// The first entry of an array document whose "uuid" is exactly uuid; -1 when none.
int findByUuid(JsonDocument& document, const char* uuid) {
    size_t count = document.getArraySize("[]");
    char path[128] = {};
    for (size_t i = 0; i < count; ++i) {
        snprintf(path, sizeof path, "[%zu]->uuid", i);
        if (strcmp(document.getValue<char*>(path), uuid) == 0) return static_cast<int>(i);
    }
    return -1;
}

void writeJobTitle(FILE* out, OrbJob& job) {
    char name[256] = {};
    job.text(name, sizeof name, "name");
    if (*job.string("policy") != '\0')
        fprintf(out, "    %-10s %s (%s)\n", _("Job:"), name, _("Watchpost Policy"));
    else
        fprintf(out, "    %-10s %s\n", _("Job:"), name);
}

void writeJobState(FILE* out, OrbJob& job) {
    int state = job.integer("info->current_state");
    char nextRun[20] = {};
    job.text(nextRun, sizeof nextRun, "next_run");
    for (char* c = nextRun; *c != '\0'; ++c)
        if (*c == 'T') *c = ' ';
    if (state == STATE_RUNNING || state == STATE_PAUSED) {
        fprintf(out, "    %-10s %s\n", "", state == STATE_RUNNING ? _("running") : _("paused"));
    } else if (state == STATE_QUEUED) {
        if (nextRun[0] == '\0') {
            fprintf(out, "    %-10s %s, %s %s\n", "", _("queued"), _("next run time is"),
                    _("not scheduled"));
        } else {
            // "YYYY-MM-DD hh:mm:ss": the time from the twelfth character, then the date. The
            // buffer is zero-filled, so a short value reads as empty past its end.
            fprintf(out, "    %-10s %s, %s %s %s %.10s\n", "", _("queued"),
                    _("next run time is"), nextRun + 11, _("on"), nextRun);
        }
    } else {
        fprintf(out, "    %-10s %s %d\n", "", _("State:"), state);
    }
    fprintf(out, "\n      %s\n", _("Settings:"));
}

void writeJobDestination(FILE* out, OrbJob& job, JsonDocument& destinations) {
    char uuid[256] = {};
    char name[256] = {};
    char target[4096] = {};
    job.text(uuid, sizeof uuid, "destination");
    int found = findByUuid(destinations, uuid);
    if (found >= 0) {
        char path[128] = {};
        snprintf(path, sizeof path, "[%d]->name", found);
        destinations.getValue(path, name, sizeof name);
        snprintf(path, sizeof path, "[%d]->path", found);
        destinations.getValue(path, target, sizeof target);
    }
    fprintf(out, "        %-20s %s\n", _("Destination:"), name[0] != '\0' ? name : _("n/a"));
    fprintf(out, "        %-20s %s\n\n", _("Path:"), target[0] != '\0' ? target : _("n/a"));
}

void writeJobCodes(FILE* out, OrbJob& job) {
    int compression = job.integer("settings->compression");
    writeCode(out, "        %-20s %s\n", "        %-20s %d\n", _("Compression:"),
              compressionLabel(compression), compression);
    int encryption = job.integer("settings->encryption");
    writeCode(out, "        %-20s %s\n", "        %-20s %d\n", _("Encryption:"),
              encryptionLabel(encryption), encryption);
    fputc('\n', out);
    fprintf(out, "        %-20s %s\n\n", _("Comment:"), job.string("settings->comment"));
}

/// "Operating System" or "Data", then each flag that is set, within 256 characters.
void describeVolume(JsonDocument& volumes, int entry, char* attributes, size_t size) {
    static const struct {
        const char* key;
        const char* label;
    } flags[] = {{"boot", N_("Boot")},
                 {"protected", N_("Protected")},
                 {"readonly", N_("Read Only")},
                 {"removable", N_("Removable")}};
    char path[128] = {};
    snprintf(path, sizeof path, "[%d]->system", entry);
    snprintf(attributes, size, "%s",
             volumes.getValue<bool>(path) ? _("Operating System") : _("Data"));
    for (const auto& flag : flags) {
        snprintf(path, sizeof path, "[%d]->%s", entry, flag.key);
        if (!volumes.getValue<bool>(path)) continue;
        size_t used = strlen(attributes);
        snprintf(attributes + used, size - used, ", %s", _(flag.label));
    }
}

void writeJobVolume(FILE* out, OrbJob& job, JsonDocument& volumes, size_t k) {
    char prefix[64] = {};
    char volumeId[256] = {};
    job.text(prefix, sizeof prefix, "volumes[%zu]->image_prefix", k);
    if (*job.text(volumeId, sizeof volumeId, "volumes[%zu]->vol_id", k) == '\0') {
        char key[64] = {};
        snprintf(key, sizeof key, "volumes[%zu]->vol_id", k);
        logError(__FILE__, __LINE__, STATUS_WARNING, "%s returned empty string", job.keyPath(key));
        return;
    }
    char device[4096] = {};
    char mountpoint[4096] = {};
    char filesystem[64] = {};
    char attributes[256] = {};
    int entry = findByUuid(volumes, volumeId);
    if (entry >= 0) {
        char path[128] = {};
        snprintf(path, sizeof path, "[%d]->device", entry);
        volumes.getValue(path, device, sizeof device);
        snprintf(path, sizeof path, "[%d]->mountpoint", entry);
        volumes.getValue(path, mountpoint, sizeof mountpoint);
        snprintf(path, sizeof path, "[%d]->filesystem", entry);
        volumes.getValue(path, filesystem, sizeof filesystem);
        describeVolume(volumes, entry, attributes, sizeof attributes);
    }
    char deviceText[sizeof device + sizeof mountpoint + 4] = {};
    snprintf(deviceText, sizeof deviceText, "%s (%s)", device, mountpoint);
    fprintf(out, "          %-18s %-30s  %-16s  %-12s  %s\n", "", deviceText, prefix, filesystem,
            attributes);
}

void writeJobVolumes(FILE* out, OrbJob& job, JsonDocument& volumes) {
    fprintf(out, "        %s\n", _("Volumes:"));
    int scheme = job.integer("settings->vol_scheme");
    writeCode(out, "          %-18s %s\n", "          %-18s %d\n", _("Scheme:"),
              volumeSchemeLabel(scheme), scheme);
    size_t count = job.count("volumes[]");
    for (size_t k = 0; k < count; ++k) writeJobVolume(out, job, volumes, k);
    fprintf(out, "\n      %s\n", _("Schedule:"));
}

}  // namespace

const char* OrbJob::formatPath(const char* key, va_list args) {
    int used = snprintf(path, sizeof path, "[%d]->", job);
    if (used < 0 || static_cast<size_t>(used) >= sizeof path) return path;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    vsnprintf(path + used, sizeof path - used, key, args);
#pragma GCC diagnostic pop
    return path;
}

int OrbJob::integer(const char* key, ...) {
    va_list args;
    va_start(args, key);
    formatPath(key, args);
    va_end(args);
    return document.getValue<int>(path);
}

bool OrbJob::boolean(const char* key, ...) {
    va_list args;
    va_start(args, key);
    formatPath(key, args);
    va_end(args);
    return document.getValue<bool>(path);
}

size_t OrbJob::count(const char* key, ...) {
    va_list args;
    va_start(args, key);
    formatPath(key, args);
    va_end(args);
    return document.getArraySize(path);
}

char* OrbJob::text(char* buffer, size_t size, const char* key, ...) {
    va_list args;
    va_start(args, key);
    formatPath(key, args);
    va_end(args);
    return document.getValue(path, buffer, size);
}

const char* OrbJob::string(const char* key, ...) {
    va_list args;
    va_start(args, key);
    formatPath(key, args);
    va_end(args);
    return document.getValue<char*>(path);
}

const char* OrbJob::keyPath(const char* key) {
    snprintf(path, sizeof path, "[%d]->%s", job, key);
    return path;
}

void writeOrbJobs(JsonDocument& volumes, JsonDocument& destinations, JsonDocument& backups) {
    FILE* out = work::logOs;
    if (out == nullptr) return;
    size_t count = backups.getArraySize("[]");
    if (count == 0) {
        fputc('\n', out);
        return;
    }
    for (size_t i = 0; i < count; ++i) {
        OrbJob job(backups, static_cast<int>(i));
        writeJobTitle(out, job);
        writeJobState(out, job);
        writeJobDestination(out, job, destinations);
        writeJobCodes(out, job);
        writeJobVolumes(out, job, volumes);
        writeOrbJobSchedule(out, job);
        writeOrbJobAdvanced(out, job);
        fputc('\n', out);
    }
}

void getOrbConfigurationJobs(int port, const char* token, const char* apiVersion) {
    if (work::logOs == nullptr) return;
    fprintf(work::logOs, "  %s\n", _("Jobs:"));
    JsonDocument system;
    JsonDocument volumes;
    JsonDocument destinations;
    JsonDocument backups;
    if (!fetchOrbDocument(ORB_SYSTEM_ENDPOINT, port, token, apiVersion, system)) return;
    if (!fetchOrbDocument(ORB_VOLUME_ENDPOINT, port, token, apiVersion, volumes)) return;
    if (!fetchOrbDocument(ORB_DESTINATION_ENDPOINT, port, token, apiVersion, destinations)) return;
    if (!fetchOrbDocument(ORB_BACKUP_ENDPOINT, port, token, apiVersion, backups)) return;
    writeOrbJobs(volumes, destinations, backups);
    // The destination document is kept by the destinations report.
    keepOrbAnswer(system, ORB_SYSTEM_ENDPOINT);
    keepOrbAnswer(volumes, ORB_VOLUME_ENDPOINT);
    keepOrbAnswer(backups, ORB_BACKUP_ENDPOINT);
}
