// Debug mode, which no option turns on, keeps the service's answers: never with a secret in them.
#include <gtest/gtest.h>

#include <cstring>

#include "frame/work.h"
#include "products/orb_rest.h"
#include "test_support.h"

namespace {

TEST(KeepOrbAnswer, MasksTheMailServersPasswordBeforeItIsWritten) {
    ts::TempDir folder;
    ts::ErrorLog log;
    std::filesystem::create_directories(folder.path + "/logs");
    snprintf(work::outputFolder, sizeof work::outputFolder, "%s", folder.path.c_str());
    work::hasOrbDebugOn = true;
    JsonDocument answer;
    const char text[] = R"({"server": "mail.example", "smtp_password": "hunter2", "AuthToken": "t0k"})";
    ASSERT_EQ(0, answer.loadDocument(text, strlen(text)));
    keepOrbAnswer(answer, ORB_SMTP_ENDPOINT);
    work::hasOrbDebugOn = false;
    EXPECT_EQ("{\n    \"server\": \"mail.example\",\n    \"smtp_password\": \"********\",\n"
              "    \"AuthToken\": \"********\"\n}\n",
              ts::readFile(folder.path + "/logs/gatr_orb-smtp.json"));
}

}  // namespace
