// Storage of the process-wide state declared in work.h.
#include "frame/work.h"

namespace work {
uint64_t options = 0;
uint64_t detected = 0;
char thousandsSeparator = 0;
char outputFolder[PATH_SIZE] = {};
char programFolder[PATH_SIZE] = {};
char settingsFileName[PATH_SIZE] = {};
char nodename[256] = {};
FILE* logOs = nullptr;
FILE* errorsOs = nullptr;
std::list<std::string> archiveList;
bool lowPriority = false;
std::set<std::string> logPaths;
std::map<std::string, std::string> entryProducts;
std::list<std::string> deleteFolderList;
JsonDocument settings;
const char* hashPathname = nullptr;
const char* ftpRegion = nullptr;
const char* ftpCaseNumber = nullptr;
const char* ftpArchiveFileName = nullptr;
bool hasOrbDebugOn = false;
RunLimits limits;
bool maskSecrets = true;
ObfuscationConfig obfuscation;
}  // namespace work
