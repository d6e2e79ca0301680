// What the upload, the case update and the update check share: the configuration file's list of
// support FTP servers and the archive's name as the servers know it.
#pragma once

#include <cstddef>

#include "frame/limits.h"
#include "json/jsonparser.h"

constexpr size_t SERVER_URL_SIZE = 1024;

// One entry of "ftp_servers[]".
struct FtpServer {
    char url[SERVER_URL_SIZE] = {};
    int port = 0;
    bool useSecure = false;
};

/// Reads "url", "port" and "use_secure" of entry index of "ftp_servers[]" into server; missing
/// keys read as empty, 0 and false. Logs nothing.
void readFtpServer(JsonDocument& config, int index, FtpServer& server);
/// Reads the entry that "ftp_servers->control_ftp_server" names into server.
void readControlServer(JsonDocument& config, FtpServer& server);
/// The archive's file name: the text after the last "/" of path, or the whole path.
const char* archiveBaseName(const char* path);
/// Writes "<url>:<port>/<name>" into url (at most size - 1 bytes, cut beyond).
void buildServerFileUrl(const FtpServer& server, const char* name, char* url, size_t size);
