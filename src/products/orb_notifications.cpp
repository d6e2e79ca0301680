// The backup product's notifications and SMTP report.
#include <cstdio>

#include "frame/i18n.h"
#include "frame/work.h"
#include "products/orb.h"
#include "products/orb_rest.h"

namespace {

// Option codes of the notification settings and the boxes they tick.
constexpr int ON_BACKUP_FINISHED = 2;
constexpr int ON_BACKUP_FAILURE = 3;
constexpr int DAILY_REPORTS = 100;
constexpr int WEEKLY_REPORTS = 105;
constexpr int MONTHLY_REPORTS = 110;

struct OptionBoxes {
    bool finished = false;
    bool failure = false;
    bool daily = false;
    bool weekly = false;
    bool monthly = false;
};

OptionBoxes readOptions(JsonDocument& notify, const char* array) {
    OptionBoxes boxes;
    char path[128] = {};
    snprintf(path, sizeof path, "%s[]", array);
    size_t count = notify.getArraySize(path);
    for (size_t i = 0; i < count; ++i) {
        snprintf(path, sizeof path, "%s[%zu]", array, i);
        switch (notify.getValue<int>(path)) {
        case ON_BACKUP_FINISHED: boxes.finished = true; break;
        case ON_BACKUP_FAILURE: boxes.failure = true; break;
        case DAILY_REPORTS: boxes.daily = true; break;
        case WEEKLY_REPORTS: boxes.weekly = true; break;
        case MONTHLY_REPORTS: boxes.monthly = true; break;
        default: break;
        }
    }
    return boxes;
}

const char* tick(bool set) { return set ? "X" : " "; }
char tickChar(bool set) { return set ? 'X' : ' '; }

void writeEmail(FILE* out, JsonDocument& notify) {
    const char* subject = notify.getValue<char*>("notify_subj");
    fprintf(out, "         %-30s  %s\n", _("Send email to:"), notify.getValue<char*>("notify_email"));
    fprintf(out, "         %-30s  %s\n", _("Prefix email subject with:"), subject);
    // The service has no body prefix of its own: the console shows the subject prefix there.
    fprintf(out, "         %-30s  %s\n\n", _("Prefix email body with:"), subject);
    OptionBoxes boxes = readOptions(notify, "email_options");
    fprintf(out, "         [%c]  %-20s    [%c]  %s\n", tickChar(boxes.finished),
            _("On backup finished"), tickChar(boxes.daily), _("Daily reports"));
    fprintf(out, "         [%c]  %-20s    [%c]  %s\n", tickChar(boxes.failure),
            _("On backup failure"), tickChar(boxes.weekly), _("Weekly reports"));
    fprintf(out, "              %-20s    [%c]  %s\n", "", tickChar(boxes.monthly),
            _("Monthly reports"));
}

void writeSms(FILE* out, JsonDocument& notify) {
    fprintf(out, "         %-20s  %s\n\n", _("SMS gateway:"), notify.getValue<char*>("notify_sms"));
    OptionBoxes boxes = readOptions(notify, "sms_options");
    fprintf(out, "         [%c]  %-20s\n", tickChar(boxes.finished), _("On backup finished"));
    fprintf(out, "         [%c]  %-20s\n", tickChar(boxes.failure), _("On backup failure"));
}

void writeSmtp(FILE* out, JsonDocument& smtp) {
    fprintf(out, "      %-20s  %s:%d\n", _("Hostname:"), smtp.getValue<char*>("address"),
            smtp.getValue<int>("port"));
    fprintf(out, "      %-20s  %s\n", _("Username:"), smtp.getValue<char*>("username"));
    fprintf(out, "      %-20s  %s\n", _("From email address:"), smtp.getValue<char*>("from_email"));
    const char* security = _("none");
    if (smtp.getValue<bool>("tls"))
        security = _("TLS");
    else if (smtp.getValue<bool>("ssl"))
        security = _("SSL");
    fprintf(out, "      %-20s  %s\n", _("Connection security:"), security);
    fputc('\n', out);
}

}  // namespace

void writeOrbNotifications(JsonDocument& notify, const char* smtpAnswer) {
    FILE* out = work::logOs;
    if (out == nullptr) return;
    bool email = notify.getValue<bool>("email_active");
    fprintf(out, "    [%s]  %s\n", tick(email), _("Notify using email (SMTP)"));
    if (email) writeEmail(out, notify);

    fputc('\n', out);
    bool sms = notify.getValue<bool>("sms_active");
    fprintf(out, "    [%s]  %s\n", tick(sms), _("Notify using text messaging (SMS)"));
    if (sms) writeSms(out, notify);

    fputc('\n', out);
    keepOrbAnswer(notify, ORB_NOTIFY_ENDPOINT);
    // The mail server settings mean nothing while e-mail is off: fetched, never shown.
    if (!email) return;

    fprintf(out, "    %s\n", _("SMTP settings:"));
    JsonDocument smtp;
    if (!parseOrbAnswer(smtpAnswer, smtp)) return;
    writeSmtp(out, smtp);
    keepOrbAnswer(smtp, ORB_SMTP_ENDPOINT);
}

void getOrbConfigurationNotifications(int port, const char* token, const char* apiVersion) {
    if (work::logOs == nullptr) return;
    fprintf(work::logOs, "  %s\n", _("Notification settings:"));
    JsonDocument notify;
    if (!fetchOrbDocument(ORB_NOTIFY_ENDPOINT, port, token, apiVersion, notify)) return;

    char url[1024] = {};
    formatOrbUrl(url, sizeof url, ORB_SMTP_ENDPOINT, port, apiVersion);
    char smtpAnswer[ORB_ANSWER_SIZE];
    if (!requestOrb(url, token, smtpAnswer, sizeof smtpAnswer)) {
        writeOrbFailure();
        return;
    }
    writeOrbNotifications(notify, smtpAnswer);
}
