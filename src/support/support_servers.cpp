// Reading the support FTP servers out of the configuration file.
#include "support/support_servers.h"

#include <cstdio>
#include <cstring>

namespace {
constexpr size_t JSON_PATH_SIZE = 128;
}  // namespace

void readFtpServer(JsonDocument& config, int index, FtpServer& server) {
    char path[JSON_PATH_SIZE] = {};
    snprintf(path, sizeof path, "ftp_servers[%d]->url", index);
    config.getValue(path, server.url, sizeof server.url);
    snprintf(path, sizeof path, "ftp_servers[%d]->port", index);
    server.port = config.getValue<int>(path);
    snprintf(path, sizeof path, "ftp_servers[%d]->use_secure", index);
    server.useSecure = config.getValue<bool>(path);
}

void readControlServer(JsonDocument& config, FtpServer& server) {
    // The path walks into the array and, finding no index, goes on among its siblings: the
    // key stands beside "ftp_servers" at the top of the file.
    readFtpServer(config, config.getValue<int>("ftp_servers->control_ftp_server"), server);
}

void buildServerFileUrl(const FtpServer& server, const char* name, char* url, size_t size) {
    snprintf(url, size, "%s:%d/%s", server.url, server.port, name);
}

const char* archiveBaseName(const char* path) {
    const char* slash = strrchr(path, '/');
    return slash != nullptr ? slash + 1 : path;
}
