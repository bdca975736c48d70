// Where the class registry of this platform lives. The file is chosen by the environment variable
// OPC_COM_REGISTRY; without it, com-registry.txt next to the COM runtime library is used.
#pragma once

// The registry file in use (UTF-8 path), fixed at the first registry access of the process.
extern "C" __attribute__((visibility("default"))) const char* RegistryFilePath(void);
