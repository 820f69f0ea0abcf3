// libdorsal3.so is the sum of the host layers; a shared library wants one source of its own.

extern "C" const char* dorsal3_version() { return DORSAL3_VERSION; }
