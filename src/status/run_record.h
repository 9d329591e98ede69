// The record of a provisioning run, kept for people who ask "what happened?": why and when the run
// started, where it is, how far it got, and how it ended and why.
//
// It only listens. The provisioning code tells it of each event through the one-line hooks
// below, and nothing in the run ever reads it back, so it can't change a call, a payload, a
// reply, a request on the wire or a log line.
#pragma once

#include <string>

#include "provision/run.h"

enum class RunTrigger {
    DemoSwitchedOn,
    Boot,
    VerifyPackages,
    AssignConfigFile,
    FailedLaunch,
    SystemInfoGathered,
};

enum class RunPhase {
    Starting,
    GatheringSystemInfo,
    WaitingForConnection,
    AskingStore,
    Removing,
    Installing,
    Reconciling,
    StartingDemonstration,
};

// --- hooks ------------------------------------------------------------------------------------
// A launch at boot is on its way; if it fails, the run it starts was started by the boot.
void runRecordExpectBoot();
// A run starts; while one is open this changes nothing.
void runRecordBegin(RunTrigger why);
// The run's state mode changes to `to`.
void runRecordMode(DownloadStateMode to);
// Phases the state mode doesn't show.
void runRecordPhase(RunPhase phase);
// The install walk asks the store about the package at `offset` of `count`.
void runRecordStoreQuery(const char *packageId, int offset, unsigned count);
// A store transfer ended: the HTTP status when a reply came, else the library's error texts.
void runRecordStoreResult(const char *method, long httpStatus, const char *error,
                          const char *detail);
// The install service's reply to an install request.
void runRecordInstallReply(const char *packageId, bool refused, const char *payload);
// A status report of an install: its state code and the percent the run computed from it.
void runRecordInstallProgress(const char *packageId, int code, unsigned percent);
// A removal at `offset` of `count` was asked for; then its reply.
void runRecordRemove(const char *packageId, int offset, unsigned count);
void runRecordRemoveReply(const char *packageId, bool refused);
// The install phase ended with this fail type.
void runRecordInstallPhaseEnd(int failType);
// A pop-up the core application is to be shown.
void runRecordPopup(const char *message);
// The demonstration's launch at the end of the run was answered.
void runRecordFinalLaunch(bool started);
// The process ends while a run may be open: "idle" or "SIGINT".
void runRecordProcessEnd(const char *how);

// --- readers ----------------------------------------------------------------------------------
bool runRecordIsOpen();
// The open run's record as a JSON object; "" when no run is open.
std::string runRecordCurrentJson();

// For tests: forget everything.
void runRecordReset();
