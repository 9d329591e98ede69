// The simulated device as a web page: the phone and what the daemon does to it, live, with the
// controls a person needs to drive a demonstration run. Served on 127.0.0.1 only.
#pragma once

#include <string>

// Starts the page's HTTP server (`port` 0 picks a free one) and begins recording what the page
// shows. Call before the services start, so the page sees everything from the first call.
bool webStart(int port, std::string &error);
void webStop();
// "http://127.0.0.1:PORT/"
std::string webUrl();
