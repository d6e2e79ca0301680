// The management agent's section of the diagnostics log.
#include "agent_section.h"
#include "i18n.h"
#include "products.h"
#include "work.h"

void enumerateWatchpost() {
    static const AgentProduct watchpost = {
        N_("BRIMWELL WATCHPOST"),
        "cmd",
        "/opt/Brimwell/watchpost-agent/bin/watchpost-agent",
        DETECTED_WATCHPOST,
        "watchpost-agent",
        "watchpost-agent",
        "/opt/Brimwell/watchpost-agent",
    };
    enumerateAgentProduct(watchpost);
}
