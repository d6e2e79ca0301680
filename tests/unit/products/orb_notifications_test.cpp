// The notifications and SMTP report's layout, from parsed answers of the product's service.
#include <gtest/gtest.h>

#include <string>

#include "orb_test_support.h"
#include "products/orb.h"

namespace {

using orbtest::ErrorLog;
using orbtest::load;
using orbtest::MainLog;

std::string report(const std::string& notifyAnswer, const std::string& smtpAnswer) {
    JsonDocument notify;
    load(notify, notifyAnswer);
    MainLog log;
    writeOrbNotifications(notify, smtpAnswer.c_str());
    return log.text();
}

const char* const kSmsOff =
    "\n"
    "    [ ]  Notify using text messaging (SMS)\n"
    "\n";

const char* const kSmtpTls =
    "    SMTP settings:\n"
    "      Hostname:             mail.example.com:587\n"
    "      Username:             relay\n"
    "      From email address:   orb@example.com\n"
    "      Connection security:  TLS\n"
    "\n";

TEST(OrbNotifications, EmailOnTicksOnlyTheGivenOptionsAndShowsTheMailServer) {
    std::string text = report(
        R"({"email_active":true,"notify_email":"ops@example.com","notify_subj":"[orb]",)"
        R"("email_options":[2,105],"sms_active":false,"notify_sms":"+1","sms_options":[2,3]})",
        R"({"address":"mail.example.com","port":587,"username":"relay",)"
        R"("from_email":"orb@example.com","tls":true,"ssl":true,"password":"secret"})");
    EXPECT_EQ(std::string("    [X]  Notify using email (SMTP)\n"
                          "         Send email to:                  ops@example.com\n"
                          "         Prefix email subject with:      [orb]\n"
                          "         Prefix email body with:         [orb]\n"
                          "\n"
                          "         [X]  On backup finished      [ ]  Daily reports\n"
                          "         [ ]  On backup failure       [X]  Weekly reports\n"
                          "                                      [ ]  Monthly reports\n") +
                  kSmsOff + kSmtpTls,
              text);
    EXPECT_EQ(std::string::npos, text.find("secret"));
}

TEST(OrbNotifications, EveryOptionCodeTicksItsBoxAndUnknownCodesTickNothing) {
    std::string text = report(
        R"({"email_active":true,"notify_email":"a@b","notify_subj":"S",)"
        R"("email_options":[110,3,100,999,2,105,-1]})",
        R"({"address":"h","port":25})");
    EXPECT_EQ(0u, text.find("    [X]  Notify using email (SMTP)\n"
                            "         Send email to:                  a@b\n"
                            "         Prefix email subject with:      S\n"
                            "         Prefix email body with:         S\n"
                            "\n"
                            "         [X]  On backup finished      [X]  Daily reports\n"
                            "         [X]  On backup failure       [X]  Weekly reports\n"
                            "                                      [X]  Monthly reports\n"))
        << text;
}

TEST(OrbNotifications, MissingOrEmptyOptionArraysLeaveEveryBoxBlank) {
    for (const char* options : {"", R"(,"email_options":[])", R"(,"email_options":"2")"}) {
        std::string text = report(std::string(R"({"email_active":true)") + options + "}",
                                  R"({"address":"h","port":25})");
        EXPECT_EQ(0u, text.find("    [X]  Notify using email (SMTP)\n"
                                "         Send email to:                  \n"
                                "         Prefix email subject with:      \n"
                                "         Prefix email body with:         \n"
                                "\n"
                                "         [ ]  On backup finished      [ ]  Daily reports\n"
                                "         [ ]  On backup failure       [ ]  Weekly reports\n"
                                "                                      [ ]  Monthly reports\n"))
            << options << "\n" << text;
    }
}

TEST(OrbNotifications, EmailOffAndSmsOnWritesNoMailServerBlock) {
    std::string text = report(
        R"({"email_active":false,"notify_email":"x@y","sms_active":true,"notify_sms":"+15550100",)"
        R"("sms_options":[3,100]})",
        "this answer is never parsed");
    EXPECT_EQ("    [ ]  Notify using email (SMTP)\n"
              "\n"
              "    [X]  Notify using text messaging (SMS)\n"
              "         SMS gateway:          +15550100\n"
              "\n"
              "         [ ]  On backup finished  \n"
              "         [X]  On backup failure   \n"
              "\n",
              text);
}

TEST(OrbNotifications, ConnectionSecurityPrefersTlsThenSsl) {
    struct Case {
        const char* flags;
        const char* want;
    };
    const Case cases[] = {
        {R"("tls":true,"ssl":true)", "TLS"},
        {R"("tls":true,"ssl":false)", "TLS"},
        {R"("tls":false,"ssl":true)", "SSL"},
        {R"("tls":false,"ssl":false)", "none"},
        {"\"x\":0", "none"},
    };
    for (const Case& c : cases) {
        std::string text = report(R"({"email_active":true})",
                                  std::string(R"({"address":"h","port":25,)") + c.flags + "}");
        EXPECT_NE(std::string::npos,
                  text.find(std::string("      Connection security:  ") + c.want + "\n\n"))
            << c.flags << "\n" << text;
    }
}

TEST(OrbNotifications, UnparsableMailServerAnswerWritesTheFailureLine) {
    std::string text = report(R"({"email_active":true})", "<html>busy</html>");
    EXPECT_NE(std::string::npos,
              text.find("\n    SMTP settings:\n"
                        "    failed to retrieve data - refer to the gatr_errors.log for details\n\n"))
        << text;
    EXPECT_EQ(std::string::npos, text.find("Hostname:"));
}

class OrbNotificationsDebug : public ::testing::Test {
protected:
    void TearDown() override { work::hasOrbDebugOn = false; }
    orbtest::TempFolder folder;
};

TEST_F(OrbNotificationsDebug, DebugModeKeepsBothAnswersInTheLogsFolderAndTheArchive) {
    orbtest::OutputFolder output(folder.path());
    ErrorLog errors;
    work::hasOrbDebugOn = true;
    report(R"({"email_active":true,"notify_email":"a@b"})", R"({"address":"h","port":25})");
    std::string notifyFile = folder.path() + "/logs/gatr_orb-notify.json";
    std::string smtpFile = folder.path() + "/logs/gatr_orb-smtp.json";
    EXPECT_EQ((std::list<std::string>{notifyFile, smtpFile}), work::archiveList);
    JsonDocument kept;
    ASSERT_EQ(0, kept.loadDocument(notifyFile.c_str()));
    EXPECT_STREQ("a@b", kept.getValue<char*>("notify_email"));
    ASSERT_EQ(0, kept.loadDocument(smtpFile.c_str()));
    EXPECT_EQ(25, kept.getValue<int>("port"));
    std::string log = errors.text();
    EXPECT_NE(std::string::npos, log.find(" debug                " + notifyFile + "\n")) << log;
    EXPECT_NE(std::string::npos, log.find(" debug                " + smtpFile + "\n")) << log;
}

TEST_F(OrbNotificationsDebug, EmailOffKeepsOnlyTheNotificationSettings) {
    orbtest::OutputFolder output(folder.path());
    ErrorLog errors;
    work::hasOrbDebugOn = true;
    report(R"({"email_active":false})", R"({"address":"h"})");
    EXPECT_EQ((std::list<std::string>{folder.path() + "/logs/gatr_orb-notify.json"}),
              work::archiveList);
    EXPECT_EQ("<missing>", orbtest::readFile(folder.path() + "/logs/gatr_orb-smtp.json"));
}

TEST_F(OrbNotificationsDebug, WithoutDebugModeNothingIsKept) {
    orbtest::OutputFolder output(folder.path());
    report(R"({"email_active":true})", R"({"address":"h"})");
    EXPECT_TRUE(work::archiveList.empty());
    EXPECT_EQ("<missing>", orbtest::readFile(folder.path() + "/logs/gatr_orb-notify.json"));
    EXPECT_EQ("<missing>", orbtest::readFile(folder.path() + "/logs/gatr_orb-smtp.json"));
}

}  // namespace
