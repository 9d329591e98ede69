// The provisioning run on one page: the phases it walks, the one function that moves it from
// phase to phase, and the words it shows the user through the core application.
//
// A run is a chain of bus replies, store answers and status timer firings on the main loop. It
// walks the modes below top to bottom; any failure on the way jumps to processEndPackageInfo, so
// every run ends with the final listing and the demonstration's start. Files are in src/provision/
// and src/store/.
//
// mode            entered by                     left by                        owner
// --------------  -----------------------------  -----------------------------  ------------------
// DSM_IDLE        process start; prvRunVYXCB;    initiateFileDownload asks the  download.cpp
//                 startupApplication finding     listing (system info first if  app_listing.cpp
//                 nothing to start               need be); listPkgsCBRun caches
//                                                it, calls startFileDownload
// DSM_ONRAMP      startFileDownload (tokens,     beginInstallDelete once the    download.cpp
//                 configuration, delete list,    profile has answered; any      config.cpp
//                 transfer handle);              failure: processEndPackage-    profile.cpp
//                 checkOnRampInfo (connection    Info
//                 wait, then the profile query)
// DSM_LOCAL       beginInstallDelete, or the     the first install request      install.cpp
//                 start skipping the on-ramp;    sent after a store check       app_detail.cpp
//                 deletes run beside the walk    (checkBazaro); an empty walk:
//                                                processEndPackageInfo
// DSM_INSTALLING  sendInstallRequest             the walk is through and no     install.cpp
//                                                install is in process:         install_status.cpp
//                                                processEndPackageInfo
// DSM_RECONCILE   processEndPackageInfo asks     listPkgsCBReconcile compares   install.cpp
//                 the final listing              it with the starting one and   app_listing.cpp
//                                                calls startupApplication
// DSM_STARTUP     startupApplication found the   prvRunVYXCB, the start's       download.cpp
//                 demonstration's package        answer
//
// Within a mode a little more state says what the run waits for: s_bWaitForInternet (the
// status timer waits for a connection, not for install status), s_bWaitingInstallStatus (a
// status request is out), the transfer handle s_CurlHandle (the store may still be asked) and
// isFileDownloadInProcess() (the starting listing is kept until the final one is compared).
#pragma once

#include <initializer_list>

enum DownloadStateMode : int {
    DSM_IDLE = 0,
    DSM_ONRAMP = 1,
    DSM_LOCAL = 2,
    DSM_INSTALLING = 3,
    DSM_RECONCILE = 4,
    DSM_STARTUP = 5,
};

DownloadStateMode getDownloadStateMode();
// Every change of phase goes through here and is logged with the caller's name. A step that
// expects the run in certain phases names them; finding it elsewhere is logged and the change
// goes on, so a confused run still reaches the demonstration's start.
void setDownloadStateMode(DownloadStateMode mode, const char *caller,
                          std::initializer_list<DownloadStateMode> expected = {});
// Logs the run found outside the expected phases; true when it was in one of them.
bool expectDownloadStateMode(std::initializer_list<DownloadStateMode> expected, const char *caller);

// The words the run shows through the core application (launchVYXCoreMessage).
inline constexpr char POPUP_CHECK[] = "check";              // a run starts, the store is asked
inline constexpr char POPUP_WAIT_CONNECT[] = "waitConnect"; // each tick of the connection wait
inline constexpr char POPUP_START_INSTALL[] = "startInstall";
inline constexpr char POPUP_CONTINUE_INSTALL[] = "continueInstall"; // with the overall percent
inline constexpr char POPUP_END_INSTALL[] = "endInstall";
inline constexpr char POPUP_FAIL_CONNECT[] = "failConnect";
inline constexpr char POPUP_START_VYX[] = "startVYX"; // the install phase ended without failure
inline constexpr char POPUP_DISABLE_VYX[] = "disableVYX";
inline constexpr char POPUP_NO_PROFILE[] = "noProfile"; // can't run, and the tokens are invalid

// The actions the run's last step sends: to the core application (launchVYXCoreAction) and to a
// demonstration that can't be started (launchVYXAction).
inline constexpr char CORE_ACTION_INITIALIZE[] = "initialize";
inline constexpr char CORE_ACTION_START_VYX[] = "startVyx";
inline constexpr char DEMO_ACTION_POWER[] = "power";
