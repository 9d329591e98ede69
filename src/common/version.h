// Dotted version comparison: numbers first, then text, component by component.
#pragma once

// Negative when a ranks below b, 0 when equal, positive when above; only the sign matters.
int versionCompare(const char *a, const char *b);
