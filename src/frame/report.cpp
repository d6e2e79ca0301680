// The section frame and the line shapes of the main log.
#include "frame/report.h"

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <memory>

#include "frame/i18n.h"
#include "frame/logging.h"
#include "frame/masking.h"
#include "frame/run_record.h"
#include "frame/work.h"

void beginSection(const char* title, bool withRule) {
    logError(__FILE__, __LINE__, STATUS_INFORMATION, "%s %s", title, "section commenced");
    recordSectionStart(title);
    if (work::logOs == nullptr) return;
    if (withRule) fprintf(work::logOs, "%s\n", DASH_RULE);
    fprintf(work::logOs, "%s\n\n", title);
    fflush(work::logOs);
}

void endSection(const char* title) {
    recordSectionEnd(title);
    logError(__FILE__, __LINE__, STATUS_INFORMATION, "%s %s", title, "section completed");
    // A run killed later still leaves every finished section readable in the main log.
    if (work::logOs != nullptr) fflush(work::logOs);
}

void writeLog(const char* format, ...) {
    if (work::logOs == nullptr) return;
    va_list args;
    va_start(args, format);
    vfprintf(work::logOs, format, args);
    va_end(args);
}

void writeLabelled(const char* label, const char* value) {
    if (work::logOs != nullptr) fprintf(work::logOs, "%-20s  %s\n", label, value);
}

void writeFact(const char* label, const char* value) {
    if (work::logOs != nullptr) fprintf(work::logOs, "  %-18s  %s\n", label, value);
}

void writeRetrievalFailure(int indent) {
    if (work::logOs != nullptr) {
        fprintf(work::logOs, "%*s%s - %s\n\n", indent, "", _("failed to retrieve data"),
                _("refer to the gatr_errors.log for details"));
    }
}

void logPopenFailure(const char* source, unsigned line, const char* word) {
    logError(source, line, STATUS_ERROR, "popen to %s failed: %s\n", word, strerror(errno));
}

void logFopenFailure(const char* source, unsigned line, const char* path) {
    logError(source, line, STATUS_ERROR, "fopen on %s failed: %s\n", path, strerror(errno));
}

void readCommandLines(FILE* pipe, size_t lineSize, const std::function<void(const char*)>& onLine) {
    std::unique_ptr<char[]> buffer(new char[lineSize]);
    for (;;) {
        memset(buffer.get(), 0, lineSize);
        if (fgets(buffer.get(), static_cast<int>(lineSize), pipe) == nullptr) break;
        if (feof(pipe)) break;
        // Gathered text never carries a secret value onwards, whoever reads the line next.
        maskLineInPlace(buffer.get(), lineSize);
        onLine(buffer.get());
    }
}
