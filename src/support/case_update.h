// The support case update that follows an upload: connector credentials, OAuth token, record.
#pragma once

#include <cstddef>

// Sizes of the buffers getConnectorDetails fills.
constexpr size_t CONNECTOR_URL_SIZE = 1024;
constexpr size_t CONNECTOR_VALUE_SIZE = 256;
// Size of each text of the case record.
constexpr size_t CASE_TEXT_SIZE = 2048;

/// Downloads ".connector" from the control FTP server (user "gatr"), copies the plain
/// "authentication_url" (1024-byte buffer) and "grant_type" and deciphers "client_id",
/// "client_secret", "username" and "password" into the caller's zeroed 256-byte buffers.
/// Returns 0, or 1 after printing the reason to standard error. Never logs a credential.
int getConnectorDetails(char* authenticationUrl, char* grantType, char* clientId,
                        char* clientSecret, char* userName, char* password);

/// Records the upload of work::ftpArchiveFileName to ftpServerUrl in case work::ftpCaseNumber:
/// token request, then the case record. Returns on success after printing "gatr: "; prints
/// one line to standard error and exits 1 on any failure.
void updateSalesforceCase(const char* ftpServerUrl);

/// The case description (at most size - 1 bytes), with "ftps://" shown as "ftp://".
void buildCaseDescription(char* text, size_t size, const char* archive, const char* region,
                          const char* serverUrl, const char* caseNumber);
/// The four "Operating system/Version/Kernel/Platform" lines from work::settings.
void buildSystemBlock(char* text, size_t size);
/// The product groups BACKUP, CLOUD, MANAGE, RECOVERY and REPLICATE from work::settings.
void buildInstalledBlock(char* text, size_t size);
