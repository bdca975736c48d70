// The simulation server's control surface as a COM class of opc_sim_server.exe (ISimulationControl,
// marshalled by opc_simcontrol_ps.dll), so that tests in another process steer and inspect the server
// state of this one. Served only by a process started with --shared, which serves every client.
#pragma once

#include <objbase.h>

#include <string>

extern const CLSID CLSID_SimulationControl;

// A new class object of the control class (one reference, the caller's).
IClassFactory* newSimulationControlFactory();

// Control objects that clients hold (the process stays while any is held), and made so far.
long liveSimulationControls();
long simulationControlsMade();

// LocalServer32 of the control class (command: the executable's quoted path and its options), or none.
HRESULT registerSimulationControl(const std::wstring& command);
HRESULT unregisterSimulationControl();
