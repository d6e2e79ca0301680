// The companion service's section of the diagnostics log.
#include "frame/i18n.h"
#include "frame/work.h"
#include "products/agent_section.h"
#include "products/products.h"

void enumerateTallyhub() {
    // Unlike the agent, the service keeps its manifest in its data folder under /var/opt, not
    // beside its executable.
    static const AgentProduct tallyhub = {
        N_("BRIMWELL TALLYHUB SERVICE"),
        "thb",
        "/opt/Brimwell/tallyhub-service/bin/tallyhub-proxy",
        DETECTED_TALLYHUB,
        "tallyhub-service",
        "tallyhub-proxy",
        "/var/opt/Brimwell/tallyhub-service",
    };
    enumerateAgentProduct(tallyhub);
}
