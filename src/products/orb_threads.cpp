// The backup product's thread dump: three answers of its service, some seconds apart, kept in
// one file of the archive so that a hang or a busy loop shows over time.
#include <cstdio>
#include <cstring>
#include <ctime>
#include <unistd.h>

#include "frame/i18n.h"
#include "frame/logging.h"
#include "frame/report.h"
#include "frame/work.h"
#include "products/orb.h"
#include "products/orb_rest.h"

namespace {

constexpr int ITERATIONS = 3;

void writeIteration(FILE* out, int number) {
    char stamp[64] = {};
    time_t now = time(nullptr);
    struct tm local = {};
    localtime_r(&now, &local);
    strftime(stamp, sizeof stamp, " [%Y-%m-%d %H:%M:%S]", &local);
    fprintf(out, "%s %d%s\n", _("iteration"), number, stamp);
}

}  // namespace

void generateOrbThreadDump(int port, const char* token) {
    generateOrbThreadDump(port, token, ORB_THREAD_DUMP_PAUSE);
}

void generateOrbThreadDump(int port, const char* token, unsigned pauseSeconds) {
    logError(__FILE__, __LINE__, STATUS_INFORMATION,
             "--orb-threads option specified: ORB threads dump will be generated");
    char path[PATH_SIZE] = {};
    snprintf(path, sizeof path, "%s/logs/%s_orb-threadsdump.log", work::outputFolder, PROGRAM_NAME);
    File file(path, "w");
    if (!file) {
        logFopenFailure(__FILE__, __LINE__, path);
        return;
    }
    fprintf(file.get(), "%s\n\n", _("ORB Threads Dump"));
    char url[1024] = {};
    formatOrbUrl(url, sizeof url, ORB_THREADS_ENDPOINT, port, nullptr);

    for (int n = 1; n <= ITERATIONS; ++n) {
        writeIteration(file.get(), n);
        char answer[ORB_ANSWER_SIZE];
        JsonDocument threads;
        // An iteration without a usable answer leaves only its line: the times still show
        // when the service did not answer.
        if (requestOrb(url, token, answer, sizeof answer) &&
            threads.loadDocument(answer, strlen(answer)) == 0) {
            threads.writeDocument(JSON_FORMAT_PRETTY, file.get());
            fputc('\n', file.get());
        }
        fflush(file.get());
        sleep(pauseSeconds);
    }
    file.close();
    work::archiveList.push_back(path);
}
