#include "status/run_record.h"

#include <glib.h>

#include <optional>
#include <vector>

#include "platform/host.h"
#include "platform/json.h"
#include "provision/download.h"
#include "provision/install.h"
#include "provision/install_status.h"
#include "status/run_history.h"
#include "status/run_status.h"

namespace {

enum class InstallState { Pending, Done, Failed, Canceled, Refused };

struct InstallEntry {
    std::string id;
    unsigned percent = 0;
    InstallState state = InstallState::Pending;
    bool reported = false;
    std::string note; // the install service's words for a refusal
};

struct StoreResult {
    std::string method;
    std::string package; // the package asked about; "" for the profile
    long httpStatus = 0;
    std::string error;
};

struct Record {
    RunTrigger trigger = RunTrigger::FailedLaunch;
    int64_t started = 0;
    RunPhase phase = RunPhase::Starting;
    std::string package; // asked about or being removed
    int offset = 0;
    unsigned count = 0;
    unsigned unasked = 0; // packages the walk has yet to ask the store about
    std::vector<InstallEntry> installs;
    unsigned removed = 0;
    bool launchAnswered = false;
    bool launchStarted = false;
    std::string failurePopup;
    int failType = -1;
    bool connectionGaveUp = false;
    bool haveStoreResult = false;
    StoreResult store;
};

std::optional<Record> s_run; // the open run, or the ended one until its event is over
bool s_bootExpected = false;
guint s_finishSource = 0; // the run ended; its record is closed once the current event is over
std::string s_lastSignature;

const char *triggerText(RunTrigger trigger) {
    switch (trigger) {
    case RunTrigger::DemoSwitchedOn:
        return "demo switched on";
    case RunTrigger::Boot:
        return "boot";
    case RunTrigger::VerifyPackages:
        return "verifyPackages";
    case RunTrigger::AssignConfigFile:
        return "assignConfigFile";
    case RunTrigger::FailedLaunch:
        return "failed launch";
    case RunTrigger::SystemInfoGathered:
        return "system information gathered";
    }
    return "";
}

const char *phaseName(RunPhase phase) {
    switch (phase) {
    case RunPhase::Starting:
        return "starting";
    case RunPhase::GatheringSystemInfo:
        return "gathering system information";
    case RunPhase::WaitingForConnection:
        return "waiting for a connection";
    case RunPhase::AskingStore:
        return "asking the store";
    case RunPhase::Removing:
        return "removing";
    case RunPhase::Installing:
        return "installing";
    case RunPhase::Reconciling:
        return "reconciling";
    case RunPhase::StartingDemonstration:
        return "starting the demonstration";
    }
    return "";
}

bool isAccepted(const InstallEntry &entry) {
    return entry.state != InstallState::Refused;
}

// The first accepted install still under way, or null.
const InstallEntry *currentInstall(const Record &run, unsigned *position, unsigned *accepted) {
    const InstallEntry *current = nullptr;
    *accepted = 0;
    for (const InstallEntry &entry : run.installs) {
        if (!isAccepted(entry))
            continue;
        ++*accepted;
        if (!current && entry.state == InstallState::Pending) {
            current = &entry;
            *position = *accepted;
        }
    }
    return current;
}

// Packages the walk has not asked about yet may still need installing: they count as installs
// at 0 %, so the figure doesn't fall back as the walk finds more to install.
unsigned overallPercent(const Record &run) {
    unsigned accepted = 0;
    unsigned sum = 0;
    for (const InstallEntry &entry : run.installs) {
        if (!isAccepted(entry))
            continue;
        ++accepted;
        sum += entry.state == InstallState::Pending ? MIN(entry.percent, 100u) : 100u;
    }
    accepted += accepted ? run.unasked : 0;
    return accepted ? sum / accepted : 0;
}

unsigned countOf(const Record &run, std::initializer_list<InstallState> states) {
    unsigned n = 0;
    for (const InstallEntry &entry : run.installs)
        for (InstallState state : states)
            n += entry.state == state;
    return n;
}

std::string activityText(const Record &run) {
    switch (run.phase) {
    case RunPhase::AskingStore:
        if (run.package.empty())
            return "asking the store for the user's profile";
        return "asking the store about package " + std::to_string(run.offset + 1) + " of " +
               std::to_string(run.count) + " (" + run.package + ")";
    case RunPhase::Removing:
        return "removing package " + std::to_string(run.offset + 1) + " of " +
               std::to_string(run.count) + " (" + run.package + ")";
    case RunPhase::Installing: {
        unsigned position = 0, accepted = 0;
        const InstallEntry *current = currentInstall(run, &position, &accepted);
        if (!current)
            return accepted ? "waiting for the installs to be reported done"
                            : "waiting for the install service to answer an install request";
        return "installing package " + std::to_string(position) + " of " +
               std::to_string(accepted) + " (" + current->id + "), " +
               std::to_string(current->percent) + "%";
    }
    default:
        return phaseName(run.phase);
    }
}

std::string storeClause(const StoreResult &store) {
    std::string what = store.method + (store.package.empty() ? "" : " for " + store.package);
    if (!store.error.empty())
        return "the store could not be reached (" + what + ": " + store.error + ")";
    if (store.httpStatus != 200)
        return "the store answered HTTP " + std::to_string(store.httpStatus) + " to " + what;
    return "the store's reply to " + what + " was not understood";
}

void addClause(std::string &reason, const std::string &clause) {
    if (!clause.empty())
        reason += (reason.empty() ? "" : "; ") + clause;
}

std::string installClauses(const Record &run, bool unreported) {
    std::string out;
    for (const InstallEntry &entry : run.installs) {
        switch (entry.state) {
        case InstallState::Refused:
            addClause(out, "the install service refused " + entry.id +
                               (entry.note.empty() ? "" : " (" + entry.note + ")"));
            break;
        case InstallState::Failed:
            addClause(out, "the install of " + entry.id + " failed at " +
                               std::to_string(entry.percent) + "%");
            break;
        case InstallState::Canceled:
            addClause(out, "the install of " + entry.id + " was canceled" +
                               (entry.percent ? " at " + std::to_string(entry.percent) + "%" : ""));
            break;
        case InstallState::Pending:
            if (unreported && !entry.reported)
                addClause(out, "the install service never reported on " + entry.id);
            break;
        case InstallState::Done:
            break;
        }
    }
    return out;
}

std::string causeClauses(const Record &run) {
    std::string reason;
    if (run.failType == FAIL_ACCOUNT)
        addClause(reason, "the account's tokens are not valid");
    if (run.failType == FAIL_CONNECT) {
        if (run.connectionGaveUp)
            addClause(reason, "no network connection within 60 seconds");
        else if (run.haveStoreResult)
            addClause(reason, storeClause(run.store));
        else
            addClause(reason, "the store could not be asked");
    }
    return reason;
}

// Outcome and reason, in words a person understands.
void describeEnd(const Record &run, const char *endedBy, std::string &outcome,
                 std::string &reason) {
    unsigned installed = countOf(run, {InstallState::Done});
    std::string causes = causeClauses(run);
    if (endedBy) {
        outcome = "failed";
        addClause(reason, std::string(g_strcmp0(endedBy, "SIGINT") == 0
                                          ? "interrupted (SIGINT) while "
                                          : "the daemon ended itself when idle while ") +
                              activityText(run));
        bool anyAccepted = false, anyReported = false;
        for (const InstallEntry &entry : run.installs) {
            anyAccepted = anyAccepted || isAccepted(entry);
            anyReported = anyReported || entry.reported;
        }
        if (run.phase == RunPhase::Installing && anyAccepted && !anyReported)
            addClause(reason, "the install service never answered a status request");
        addClause(reason, causes);
        addClause(reason, installClauses(run, false));
        return;
    }
    if (run.launchStarted) {
        bool current = run.installs.empty() && run.removed == 0 && run.failType <= 0;
        outcome = current ? "already current" : "demonstration started";
        if (current)
            reason = "nothing to install or remove";
        if (installed)
            addClause(reason, "installed " + std::to_string(installed) + " of " +
                                  std::to_string(run.installs.size()));
        if (run.removed)
            addClause(reason, "removed " + std::to_string(run.removed));
        addClause(reason, causes);
        addClause(reason, installClauses(run, true));
        return;
    }
    outcome = "failed";
    addClause(reason, causes);
    addClause(reason, installClauses(run, true));
    addClause(reason, run.launchAnswered ? "the demonstration application did not start"
                                         : "the demonstration application is not installed");
    if (!run.failurePopup.empty())
        addClause(reason, "the core application was told \"" + run.failurePopup + "\"");
}

std::string recordJson(const Record &run, const char *endedBy, bool ended) {
    unsigned position = 0, accepted = 0;
    const InstallEntry *current = currentInstall(run, &position, &accepted);
    std::string out = "{\"started\":" + std::to_string(run.started) +
                      ",\"trigger\":" + jsonQuoted(triggerText(run.trigger));
    if (!ended) {
        out += ",\"phase\":" + jsonQuoted(phaseName(run.phase)) +
               ",\"activity\":" + jsonQuoted(activityText(run).c_str());
        if (run.phase == RunPhase::Installing && current)
            out += ",\"package\":" + jsonQuoted(current->id.c_str()) +
                   ",\"index\":" + std::to_string(position) +
                   ",\"count\":" + std::to_string(accepted) +
                   ",\"percent\":" + std::to_string(current->percent);
        else if (!run.package.empty() &&
                 (run.phase == RunPhase::AskingStore || run.phase == RunPhase::Removing))
            out += ",\"package\":" + jsonQuoted(run.package.c_str()) +
                   ",\"index\":" + std::to_string(run.offset + 1) +
                   ",\"count\":" + std::to_string(run.count);
        out += ",\"overall\":" + std::to_string(overallPercent(run));
    }
    out += ",\"toInstall\":" + std::to_string(run.installs.size()) +
           ",\"installed\":" + std::to_string(countOf(run, {InstallState::Done})) + ",\"failed\":" +
           std::to_string(countOf(
               run, {InstallState::Failed, InstallState::Canceled, InstallState::Refused})) +
           ",\"removed\":" + std::to_string(run.removed);
    if (ended) {
        std::string outcome, reason;
        describeEnd(run, endedBy, outcome, reason);
        out += ",\"ended\":" + std::to_string(hostNowSeconds()) +
               ",\"outcome\":" + jsonQuoted(outcome.c_str()) +
               ",\"reason\":" + jsonQuoted(reason.c_str());
    }
    return out + "}";
}

// Subscribers hear of every change of phase, package or percent, and of nothing else.
void changed() {
    if (!s_run)
        return;
    std::string signature = recordJson(*s_run, nullptr, false);
    if (signature == s_lastSignature)
        return;
    s_lastSignature = signature;
    runStatusChanged(signature, false);
}

void finish(const char *endedBy) {
    if (s_finishSource) {
        g_source_remove(s_finishSource);
        s_finishSource = 0;
    }
    if (!s_run)
        return;
    std::string json = recordJson(*s_run, endedBy, true);
    s_run.reset();
    s_lastSignature.clear();
    runHistoryAppend(json);
    runStatusChanged(json, true);
}

gboolean finishWhenIdle(gpointer) {
    s_finishSource = 0;
    finish(nullptr);
    return G_SOURCE_REMOVE;
}

// The store walk and the removals each name the package they are at, and where it stands.
void atPackage(RunPhase phase, const char *packageId, int offset, unsigned count) {
    s_run->phase = phase;
    s_run->package = packageId ? packageId : "";
    s_run->offset = offset;
    s_run->count = count;
}

InstallEntry *findInstall(const char *packageId) {
    if (!s_run || !packageId)
        return nullptr;
    for (InstallEntry &entry : s_run->installs)
        if (entry.id == packageId && isAccepted(entry))
            return &entry;
    return nullptr;
}

// The install service's own words for a refusal, as it wrote them.
std::string errorText(const char *payload) {
    JsonTree root = jsonParse(payload);
    const char *text = nullptr;
    if (root && root->type == JSON_OBJECT && json_get_string(root.get(), "errorText", &text))
        return text;
    return "";
}

} // namespace

// ---------------------------------------------------------------------------------------------
// Hooks

void runRecordExpectBoot() {
    s_bootExpected = true;
}

void runRecordBegin(RunTrigger why) {
    if (s_finishSource)
        finish(nullptr);
    if (s_run)
        return;
    s_run.emplace();
    s_run->trigger = why == RunTrigger::FailedLaunch && s_bootExpected ? RunTrigger::Boot : why;
    s_bootExpected = false;
    s_run->started = hostNowSeconds();
    changed();
}

void runRecordMode(DownloadStateMode to) {
    if (to != DSM_IDLE && (!s_run || s_finishSource))
        runRecordBegin(RunTrigger::FailedLaunch);
    if (!s_run)
        return;
    switch (to) {
    case DSM_ONRAMP:
        s_run->phase = RunPhase::AskingStore;
        s_run->package.clear();
        break;
    case DSM_LOCAL:
        s_run->phase = RunPhase::AskingStore;
        break;
    case DSM_INSTALLING:
        s_run->phase = RunPhase::Installing;
        break;
    case DSM_RECONCILE:
        s_run->phase = RunPhase::Reconciling;
        break;
    case DSM_STARTUP:
        s_run->phase = RunPhase::StartingDemonstration;
        break;
    default:
        // What the run says next, in the same event (the pop-up of a launch that failed), still
        // belongs to it.
        if (!s_finishSource)
            s_finishSource = g_idle_add(finishWhenIdle, nullptr);
        return;
    }
    changed();
}

void runRecordPhase(RunPhase phase) {
    if (!s_run || s_finishSource)
        return;
    s_run->phase = phase;
    changed();
}

void runRecordStoreQuery(const char *packageId, int offset, unsigned count) {
    if (!s_run)
        return;
    atPackage(RunPhase::AskingStore, packageId, offset, count);
    s_run->unasked = offset >= 0 && static_cast<unsigned>(offset) < count ? count - offset - 1 : 0;
    changed();
}

void runRecordStoreResult(const char *method, long httpStatus, const char *error,
                          const char *detail) {
    if (!s_run)
        return;
    StoreResult &store = s_run->store;
    store.method = method ? method : "";
    store.package = s_run->phase == RunPhase::AskingStore ? s_run->package : "";
    store.httpStatus = httpStatus;
    // The error buffer says more than the code's text ("Failed to connect to ... port ...").
    store.error = error ? (detail && *detail ? detail : error) : "";
    if (!store.error.empty() && store.error.back() == '\n')
        store.error.pop_back();
    s_run->haveStoreResult = true;
    if (s_run->phase == RunPhase::WaitingForConnection)
        s_run->phase = RunPhase::AskingStore;
}

void runRecordInstallReply(const char *packageId, bool refused, const char *payload) {
    if (!s_run)
        return;
    InstallEntry entry;
    entry.id = packageId ? packageId : "";
    if (refused) {
        entry.state = InstallState::Refused;
        entry.note = errorText(payload);
    }
    s_run->installs.push_back(entry);
    s_run->phase = RunPhase::Installing;
    changed();
}

void runRecordInstallProgress(const char *packageId, int code, unsigned percent) {
    InstallEntry *entry = findInstall(packageId);
    if (!entry || entry->state != InstallState::Pending)
        return;
    entry->reported = true;
    switch (code) {
    case INSTALL_DONE:
    case INSTALL_REMOVING:
    case INSTALL_REMOVED:
        entry->state = InstallState::Done;
        entry->percent = 100;
        break;
    case INSTALL_FAILED:
        entry->state = InstallState::Failed; // the percent it got to stays
        break;
    case INSTALL_CANCELED:
        entry->state = InstallState::Canceled;
        break;
    case INSTALL_ACTIVE:
    case INSTALL_DOWNLOADING:
    case INSTALL_ICON:
        entry->percent = percent;
        break;
    default:
        return;
    }
    s_run->phase = RunPhase::Installing;
    changed();
}

void runRecordRemove(const char *packageId, int offset, unsigned count) {
    if (!s_run)
        return;
    atPackage(RunPhase::Removing, packageId, offset, count);
    changed();
}

void runRecordRemoveReply(const char *, bool refused) {
    if (!s_run || refused)
        return;
    s_run->removed++;
    changed();
}

void runRecordInstallPhaseEnd(int failType) {
    if (!s_run)
        return;
    // The first end counts: a run whose profile failed may end its install phase twice.
    if (s_run->failType < 0)
        s_run->failType = failType;
    s_run->connectionGaveUp = s_run->phase == RunPhase::WaitingForConnection;
}

void runRecordPopup(const char *message) {
    if (!s_run || !message)
        return;
    bool failure = g_strcmp0(message, POPUP_FAIL_CONNECT) == 0 ||
                   g_strcmp0(message, POPUP_DISABLE_VYX) == 0 ||
                   g_strcmp0(message, POPUP_NO_PROFILE) == 0;
    if (!failure)
        return;
    s_run->failurePopup = message;
}

void runRecordFinalLaunch(bool started) {
    if (!s_run)
        return;
    s_run->launchAnswered = true;
    s_run->launchStarted = started;
}

void runRecordProcessEnd(const char *how) {
    if (s_finishSource)
        finish(nullptr);
    else if (s_run)
        finish(how);
    runStatusRelease();
}

// ---------------------------------------------------------------------------------------------
// Readers

bool runRecordIsOpen() {
    return s_run && !s_finishSource;
}

std::string runRecordCurrentJson() {
    return s_run ? recordJson(*s_run, nullptr, false) : "";
}

void runRecordReset() {
    if (s_finishSource)
        g_source_remove(s_finishSource);
    s_finishSource = 0;
    s_run.reset();
    s_bootExpected = false;
    s_lastSignature.clear();
}
