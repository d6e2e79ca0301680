// The machine's facts for obfuscation are read once per run, before the first member is packed,
// so that every member is filtered with the same knowledge.
#include "collect/obfuscation_facts.h"

#include <netdb.h>
#include <pwd.h>
#include <strings.h>
#include <sys/utsname.h>

#include <cstring>
#include <string>

#include "frame/file.h"
#include "frame/work.h"

namespace {

constexpr uid_t FIRST_PERSON_UID = 1000;
constexpr uid_t NOBODY_UID = 65534;

/// Every name on the lines of a hosts file, and the first dotted name on the line that names
/// host (the fully qualified name by the file's own convention).
void readHostsFile(const char* path, const std::string& host, std::vector<std::string>& names, std::string& fqdn) {
    File file(path, "r");
    if (!file) return;
    char line[1024];
    while (fgets(line, sizeof line, file.get()) != nullptr) {
        char* hash = strchr(line, '#');
        if (hash != nullptr) *hash = '\0';
        std::vector<std::string> lineNames;
        char* saved = nullptr;
        char* word = strtok_r(line, " \t\r\n", &saved);  // the address
        while (word != nullptr && (word = strtok_r(nullptr, " \t\r\n", &saved)) != nullptr) lineNames.push_back(word);
        bool namesHost = false;
        for (const std::string& name : lineNames) namesHost = namesHost || strcasecmp(name.c_str(), host.c_str()) == 0;
        for (const std::string& name : lineNames) {
            if (namesHost && fqdn.empty() && name.find('.') != std::string::npos) fqdn = name;
            names.push_back(name);
        }
    }
}

std::string canonicalName(const std::string& host) {
    struct addrinfo hints = {};
    hints.ai_family = AF_UNSPEC;
    hints.ai_flags = AI_CANONNAME;
    struct addrinfo* found = nullptr;
    if (getaddrinfo(host.c_str(), nullptr, &hints, &found) != 0 || found == nullptr) return "";
    std::string name = found->ai_canonname != nullptr ? found->ai_canonname : "";
    freeaddrinfo(found);
    return name.find('.') != std::string::npos ? name : "";
}

void readPeople(std::vector<std::string>& users) {
    setpwent();
    while (struct passwd* entry = getpwent()) {
        if (entry->pw_uid >= FIRST_PERSON_UID && entry->pw_uid != NOBODY_UID && entry->pw_name != nullptr)
            users.push_back(entry->pw_name);
    }
    endpwent();
}

}  // namespace

privacy::ObfuscationSettings gatherObfuscationFacts(const char* hostsPath) {
    privacy::ObfuscationSettings settings;
    struct utsname names = {};
    if (uname(&names) == 0) settings.hostName = names.nodename;
    if (settings.hostName.find('.') != std::string::npos) settings.fqdn = settings.hostName;
    readHostsFile(hostsPath, settings.hostName.substr(0, settings.hostName.find('.')), settings.hostsFileNames,
                  settings.fqdn);
    if (settings.fqdn.empty() && !settings.hostName.empty()) settings.fqdn = canonicalName(settings.hostName);
    readPeople(settings.users);
    settings.domains = work::obfuscation.domains;
    settings.users.insert(settings.users.end(), work::obfuscation.users.begin(), work::obfuscation.users.end());
    settings.keywords = work::obfuscation.keywords;
    return settings;
}
