// The management agent's section of the diagnostics log.
#include "frame/i18n.h"
#include "frame/work.h"
#include "products/agent_section.h"
#include "products/products.h"

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
