// `vyxctl status [--follow] [--json]`; argv[0] is "status".
#pragma once

int statusCommand(int argc, char **argv);
