// The install service: installs and removals run on their own timers through the states the
// platform reports ("ipk download current" with a percent, "installing", "installed"; or a
// failure, a cancel; "removing", "removed"), and "status" reports them in either reply form.
#include <glib.h>

#include <algorithm>
#include <list>

#include "records.h"
#include "services.h"
#include "sim.h"
#include "sim_json.h"

namespace {

constexpr int DOWNLOAD_STEPS = 5;

struct Install {
    long ticket;
    std::string id;
    std::string version;
    std::string title;
    bool removal = false;
    InstallBehaviour behaviour;
    std::string state;
    unsigned progress = 0;
    int step = 0;
    guint timer = 0;
    bool finished = false;
    bool finalReported = false; // single-form replies report every outcome once
};

// One record per package, the latest; kept after it finished so status shows the outcome.
std::list<Install> s_installs;
long s_nextTicket = 1;

std::string entryJson(const Install &install) {
    return "{\"id\":" + jsonQuote(install.id) + ",\"ticket\":" + std::to_string(install.ticket) +
           ",\"details\":{\"state\":" + jsonQuote(install.state) +
           ",\"progress\":" + std::to_string(install.progress) + "}}";
}

std::string listReply() {
    std::string apps;
    for (const Install &install : s_installs)
        appendItem(apps, entryJson(install));
    return "{\"returnValue\":true,\"status\":{\"apps\":[" + apps + "]}}";
}

std::string singleReply(const Install &install) {
    return "{\"returnValue\":true,\"id\":" + jsonQuote(install.id) +
           ",\"ticket\":" + std::to_string(install.ticket) +
           ",\"details\":{\"state\":" + jsonQuote(install.state) +
           ",\"progress\":" + std::to_string(install.progress) + "}}";
}

Install *findInstall(const std::string &id) {
    for (Install &install : s_installs)
        if (install.id == id)
            return &install;
    return nullptr;
}

// Without an id the single form answers for the oldest install that is running or whose outcome
// was not reported yet, so a poller sees every outcome.
std::string singleReplyNext() {
    for (Install &install : s_installs)
        if (!install.finished || !install.finalReported) {
            install.finalReported = install.finished;
            return singleReply(install);
        }
    if (!s_installs.empty())
        return singleReply(s_installs.back());
    return "{\"returnValue\":true,\"status\":{\"apps\":[]}}";
}

void changed(Install &install) {
    recordEvent("install", "\"id\":" + jsonQuote(install.id) +
                               ",\"ticket\":" + std::to_string(install.ticket) +
                               ",\"state\":" + jsonQuote(install.state) +
                               ",\"progress\":" + std::to_string(install.progress));
    publishEach("install", [&](const Subscriber &who) {
        if (who.filter.empty())
            return listReply();
        return who.filter == install.id ? singleReply(install) : std::string();
    });
}

// A package's own duration, else the scenario's, which may grow with the package's size.
unsigned durationMs(const Install &install) {
    if (install.behaviour.durationMs)
        return install.behaviour.durationMs;
    const Scenario &device = sim().device;
    long long size = 0;
    for (const CatalogueEntry &entry : device.catalogue)
        if (entry.id == install.id)
            size = entry.size;
    long long scaled = size * device.installMsPerMiB / 1048576;
    return device.installDurationMs + static_cast<unsigned>(std::min(scaled, 3600000LL));
}

unsigned tickMs(const Install &install) {
    unsigned duration = durationMs(install);
    if (install.removal)
        duration /= 3;
    unsigned ticks = install.removal ? 1 : DOWNLOAD_STEPS + 1;
    return std::max(20u, duration / ticks);
}

void finish(Install &install, const char *state) {
    install.state = state;
    install.finished = true;
    install.timer = 0;
}

void completeInstall(Install &install) {
    Package package;
    package.id = install.id;
    package.version = install.version;
    package.title = install.title.empty() ? install.id : install.title;
    package.userInstalled = install.behaviour.userInstalled;
    package.icon = userIconPath(install.id);
    packageInstalled(package);
}

gboolean tick(gpointer data) {
    Install &install = *static_cast<Install *>(data);
    if (install.removal) {
        finish(install, "removed");
        packageRemove(install.id);
        std::erase_if(sim().device.running,
                      [&](const RunningApp &r) { return r.id == install.id; });
        changed(install);
        return G_SOURCE_REMOVE;
    }
    const InstallBehaviour &b = install.behaviour;
    bool stops = b.outcome == InstallOutcome::Failed || b.outcome == InstallOutcome::Canceled;
    if (install.state == "installing") {
        if (stops) {
            finish(install,
                   b.outcome == InstallOutcome::Failed ? "install failed" : "install canceled");
        } else {
            finish(install, "installed");
            completeInstall(install);
        }
        changed(install);
        return G_SOURCE_REMOVE;
    }
    ++install.step;
    install.progress = std::min(100u, static_cast<unsigned>(install.step * 100 / DOWNLOAD_STEPS));
    if (stops && b.failAt < 100 && install.progress >= b.failAt) {
        install.progress = b.failAt;
        finish(install,
               b.outcome == InstallOutcome::Failed ? "download failed" : "download canceled");
        changed(install);
        return G_SOURCE_REMOVE;
    }
    if (install.progress >= 100)
        install.state = "installing";
    changed(install);
    return G_SOURCE_CONTINUE;
}

Install &start(const std::string &id, bool removal) {
    if (Install *old = findInstall(id)) {
        if (old->timer)
            g_source_remove(old->timer);
        s_installs.remove_if([&](const Install &i) { return &i == old; });
    }
    Install &install = s_installs.emplace_back();
    install.ticket = s_nextTicket++;
    install.id = id;
    install.removal = removal;
    auto behaviour = sim().device.installs.find(id);
    if (behaviour != sim().device.installs.end())
        install.behaviour = behaviour->second;
    install.state = removal ? "removing" : "ipk download current";
    install.timer = g_timeout_add(tickMs(install), tick, &install);
    return install;
}

bool busy(const std::string &id) {
    const Install *install = findInstall(id);
    return install && !install->finished;
}

// The request arrives as the store client writes it: a single-quoted object.
void isInstall(Call &call) {
    JsonTree request = jsonParseLenient(call.payload);
    std::string id = jsonText(jsonMember(request.get(), "id"));
    if (!request || id.empty()) {
        call.fail("Invalid install request");
        return;
    }
    auto behaviour = sim().device.installs.find(id);
    if (behaviour != sim().device.installs.end() &&
        behaviour->second.outcome == InstallOutcome::Refused) {
        recordEvent("install", "\"id\":" + jsonQuote(id) +
                                   ",\"ticket\":0,\"state\":\"refused\",\"progress\":0");
        call.fail("Install of " + id + " refused");
        return;
    }
    if (busy(id)) {
        call.fail("Install of " + id + " already in process");
        return;
    }
    // Accepted and then lost: the package never shows in status and never arrives.
    if (behaviour != sim().device.installs.end() &&
        behaviour->second.outcome == InstallOutcome::Silent) {
        long ticket = s_nextTicket++;
        recordEvent("install", "\"id\":" + jsonQuote(id) + ",\"ticket\":" +
                                   std::to_string(ticket) + ",\"state\":\"silent\",\"progress\":0");
        call.reply("{\"returnValue\":true,\"ticket\":" + std::to_string(ticket) + "}");
        return;
    }
    std::string version = jsonText(jsonMember(request.get(), "version"));
    std::string title = jsonText(jsonMember(request.get(), "title"));
    for (const CatalogueEntry &entry : sim().device.catalogue)
        if (entry.id == id) {
            version = entry.version;
            title = entry.title;
        }
    Install &install = start(id, false);
    install.version = version.empty() ? "1.0.0" : version;
    install.title = title;
    call.reply("{\"returnValue\":true,\"ticket\":" + std::to_string(install.ticket) + "}");
    changed(install);
}

void isRemove(Call &call) {
    std::string id = jsonText(jsonMember(call.json.get(), "id"));
    if (id.empty()) {
        call.fail("Missing id");
        return;
    }
    const Package *package = packageFind(id);
    if (!package) {
        call.fail("Package " + id + " is not installed");
        return;
    }
    // Only what lives in the user application area can go; the system image stays.
    if (!package->userInstalled &&
        !g_str_has_prefix(package->icon.c_str(), "/media/cryptofs/apps/")) {
        call.fail("Package " + id + " is part of the system");
        return;
    }
    if (busy(id)) {
        call.fail("Package " + id + " is busy");
        return;
    }
    Install &removal = start(id, true);
    call.reply("{\"returnValue\":true,\"ticket\":" + std::to_string(removal.ticket) + "}");
    changed(removal);
}

void isStatus(Call &call) {
    const JsonNode *root = call.json.get();
    const JsonNode *subscribe = jsonMember(root, "subscribe");
    std::string id = jsonText(jsonMember(root, "id"));
    std::string form = jsonText(jsonMember(root, "form"));
    // A hung service: the caller waits for an answer that never comes.
    if (sim().device.faults.statusSilent) {
        call.answered = true;
        return;
    }
    if (subscribe && subscribe->type == JSON_FALSE) {
        unsubscribe("install", call.sender);
        call.ok();
        return;
    }
    if (!id.empty()) {
        const Install *install = findInstall(id);
        if (!install) {
            call.fail("No install of " + id);
            return;
        }
        call.reply(singleReply(*install));
    } else if (form == "single" || (form != "list" && sim().device.statusSingleForm)) {
        call.reply(singleReplyNext());
    } else {
        call.reply(listReply());
    }
    if (subscribe && subscribe->type == JSON_TRUE)
        call.keep("install", id);
}

} // namespace

std::string installsJson() {
    std::string out = "[";
    for (const Install &install : s_installs) {
        if (out.size() > 1)
            out += ',';
        out += "{\"id\":" + jsonQuote(install.id) +
               ",\"ticket\":" + std::to_string(install.ticket) +
               ",\"removal\":" + (install.removal ? "true" : "false") +
               ",\"state\":" + jsonQuote(install.state) +
               ",\"progress\":" + std::to_string(install.progress) +
               ",\"finished\":" + (install.finished ? "true" : "false") + "}";
    }
    return out + "]";
}

void defineInstallService() {
    serviceDefine("com.velto.appInstallService", "/",
                  {{"install", isInstall}, {"remove", isRemove}, {"status", isStatus}});
}
