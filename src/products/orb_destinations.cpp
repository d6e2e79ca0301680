// The backup product's destinations report.
#include <cstdio>

#include "frame/i18n.h"
#include "frame/work.h"
#include "products/orb.h"
#include "products/orb_rest.h"

namespace {

constexpr int LOCAL_VOLUME = 0;
constexpr int NETWORK_SHARE = 1;

const char* destinationType(int storeType) {
    switch (storeType) {
    case LOCAL_VOLUME: return _("Local Volume");
    case NETWORK_SHARE: return _("Network Share");
    default: return _("unknown");
    }
}

}  // namespace

void writeOrbDestinations(JsonDocument& destinations) {
    FILE* out = work::logOs;
    if (out == nullptr) return;
    size_t count = destinations.getArraySize("[]");
    for (size_t i = 0; i < count; ++i) {
        char path[128] = {};
        char name[256] = {};
        char target[256] = {};
        char user[256] = {};
        snprintf(path, sizeof path, "[%zu]->store_type", i);
        int storeType = destinations.getValue<int>(path);
        snprintf(path, sizeof path, "[%zu]->name", i);
        destinations.getValue(path, name, sizeof name);
        snprintf(path, sizeof path, "[%zu]->path", i);
        destinations.getValue(path, target, sizeof target);
        snprintf(path, sizeof path, "[%zu]->username", i);
        destinations.getValue(path, user, sizeof user);
        snprintf(path, sizeof path, "[%zu]->is_default", i);
        bool isDefault = destinations.getValue<bool>(path);
        snprintf(path, sizeof path, "[%zu]->policy", i);
        if (*destinations.getValue<char*>(path) != '\0') {
            char managed[256] = {};
            snprintf(managed, sizeof managed, "%s (%s)", name, _("Watchpost Policy"));
            snprintf(name, sizeof name, "%s", managed);
        }
        // Only a network share has a user: a local volume's leftover user name is not shown.
        const char* userColumn = storeType == NETWORK_SHARE ? user : "";
        // The default mark stands in the column gap right before the path.
        fprintf(out, "    %-20s  %-40s %c%-40s  %s\n", destinationType(storeType), name,
                isDefault ? '*' : ' ', target, userColumn);
    }
    fputc('\n', out);
}

void getOrbConfigurationDestinations(int port, const char* token, const char* apiVersion) {
    if (work::logOs == nullptr) return;
    fprintf(work::logOs, "  %s\n", _("Destinations:"));
    fprintf(work::logOs, "    %-20s  %-40s  %-40s  %s\n", _("Type"), _("Description"),
            _("Destination"), _("User Name"));
    JsonDocument destinations;
    if (!fetchOrbDocument(ORB_DESTINATION_ENDPOINT, port, token, apiVersion, destinations)) return;
    writeOrbDestinations(destinations);
    keepOrbAnswer(destinations, ORB_DESTINATION_ENDPOINT);
}
