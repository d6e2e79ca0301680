// The backup product's local REST client: the one way every report of the section asks the
// product's service for an answer, reports a failure and keeps the raw answer in debug mode.
#pragma once

#include <cstddef>

#include "json/jsonparser.h"

/// The port the product's service listens on when its configuration file names none.
constexpr int ORB_DEFAULT_REST_PORT = 13581;
/// Seconds one request to the product's service may take, transfer included. Every request
/// of the section goes through requestOrb, which applies this limit by default.
constexpr long ORB_REST_TIME_LIMIT = 60;
/// Bytes of the largest answer accepted from the service (terminating zero included).
constexpr unsigned long ORB_ANSWER_SIZE = 16384;

/// One endpoint of the service: its URL template ("%d" port, then "%s" API version where it
/// has one) and the file that keeps its answer in debug mode (null when none is kept).
struct OrbEndpoint {
    const char* url;
    const char* keptFile;
};

extern const OrbEndpoint ORB_VERSION_ENDPOINT;
extern const OrbEndpoint ORB_NOTIFY_ENDPOINT;
extern const OrbEndpoint ORB_SMTP_ENDPOINT;
extern const OrbEndpoint ORB_SYSTEM_ENDPOINT;
extern const OrbEndpoint ORB_VOLUME_ENDPOINT;
extern const OrbEndpoint ORB_DESTINATION_ENDPOINT;
extern const OrbEndpoint ORB_BACKUP_ENDPOINT;
extern const OrbEndpoint ORB_THREADS_ENDPOINT;

/// Fills url (1024 bytes are used by every caller) from the endpoint's template; returns url.
char* formatOrbUrl(char* url, size_t size, const OrbEndpoint& endpoint, int port,
                   const char* apiVersion);

/// One GET of url with the header "Authorization: Token <token>" (no header when token is
/// null), the answer in the zero-filled buffer. True when the service answered 200 within
/// timeLimit seconds and the answer fitted; the transfer layer logs every failure. Never
/// writes the token anywhere but into the request.
bool requestOrb(const char* url, const char* token, char* answer, unsigned long answerSize,
                long timeLimit = ORB_REST_TIME_LIMIT);

/// Parses an answer into document; on failure writes the reports' failure line to the main
/// log and returns false.
bool parseOrbAnswer(const char* answer, JsonDocument& document);

/// requestOrb and parseOrbAnswer for one endpoint; a failed transfer writes the failure line
/// too. True when document holds the parsed answer.
bool fetchOrbDocument(const OrbEndpoint& endpoint, int port, const char* token,
                      const char* apiVersion, JsonDocument& document);

/// Writes the reports' failure line, "    failed to retrieve data - refer to ...\n\n".
void writeOrbFailure();

/// In debug mode only (work::hasOrbDebugOn): writes document, pretty, to the endpoint's kept
/// file in the logs folder, and when that succeeded logs its path (debug) and appends it to
/// work::archiveList.
void keepOrbAnswer(JsonDocument& document, const OrbEndpoint& endpoint);
