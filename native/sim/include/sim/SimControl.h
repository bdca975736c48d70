// Control surface of the simulation OPC DA server, for tests in C++ and (through the test-support
// JNI library) in Java. The functions are plain C exports of the server module.
//
// Class:    kSimClsidText, ProgID "Velmora.Simulation.1", version-independent "Velmora.Simulation",
//           registered in the categories OPC DA 1.0, 2.0 and 3.0.
//
// Server interfaces: IOPCServer, IOPCCommon (locales 1033 and 1031), IConnectionPointContainer
// (IOPCShutdown), IOPCItemProperties, IOPCBrowseServerAddressSpace, IOPCBrowse, IOPCSecurityNT and
// IOPCSecurityPrivate (one account: user "operator", password "secret"). Group interfaces:
// IOPCItemMgt, IOPCGroupStateMgt, IOPCSyncIO, IOPCAsyncIO2, IConnectionPointContainer
// (IOPCDataCallback). Update rates are granted in steps of 10 ms, at least 10 ms. Data changes,
// asynchronous completions and shutdown requests reach the client on the server's own thread
// (asynchronous completions on the caller's thread under SimSetInlineCompletion).
//
// The module also serves the server-list class (CLSID_OpcServerList, IOPCServerList2 and
// IOPCServerList) over the registry of the host, registering it only where the host has none.
//
// Item ids (branches separated by '.'):
//   Simulation.Static.<T>      T = I1 I2 I4 INT UI1 UI2 UI4 UINT R4 R8 BOOL BSTR; read/write, a written
//                              value reads back.
//   Simulation.Array.<T>       T = I1 I2 I4 UI1 UI2 UI4 R4 R8 BOOL BSTR; VT_ARRAY|T, one dimension,
//                              lower bound 0; read/write.
//   Simulation.Random.<T>      T = I4 R8; read-only, a new value on every read.
//   Simulation.Ramp.<T>        T = I4 R8; read-only, counts 0..99 once every 100 ms.
//   Simulation.Sine.R8         read-only, 100 * sin(2 pi t / 10 s).
//   Simulation.Unsupported.<T> T = DATE I8 CY; read/write, types the client cannot render.
//   Simulation.Access.ReadOnly (R8, OPC_READABLE), Simulation.Access.WriteOnly (R8, OPC_WRITEABLE;
//                              reading it fails per item with OPC_E_BADRIGHTS).
//   Simulation.Quality.Bad (R8, quality 0x18 bad/comm failure),
//   Simulation.Quality.Uncertain (R8, quality 0x40 uncertain).
//   Bench.R8.<n>, Bench.Str.<n>  n = 0..9999; R8 (initially n + 0.5) and BSTR (initially "value<n>");
//                              read/write.
// An id that is empty, has an empty segment, or holds a blank or control character is invalid
// (OPC_E_INVALIDITEMID); any other unknown id is OPC_E_UNKNOWNITEMID. A non-empty access path is
// OPC_E_UNKNOWNPATH. Requested types: VT_EMPTY (canonical) or any scalar of I1 I2 I4 INT UI1 UI2
// UI4 UINT R4 R8 BOOL BSTR for a scalar item of those types; an array or unsupported-type item
// accepts only its canonical type; everything else is OPC_E_BADTYPE.
//
// Method names used below are "<Interface>::<Method>", e.g. "IOPCServer::GetStatus",
// "IOPCServer::AddGroup", "IOPCSyncIO::Read", "IOPCItemMgt::AddItems", "IClassFactory::CreateInstance",
// "IConnectionPoint::Advise", "IOPCAsyncIO2::Read".
//
// Call record: every method records one call. SimLastCallArgs gives the arguments of the last call
// as "key=value" pairs separated by one blank, in parameter order; pointers that may be null give
// "null" when they are, wide strings are written as their ASCII text, handle lists comma-separated:
//   IOPCServer::AddGroup       "name=G1 active=1 rate=1000 clientHandle=5 timeBias=null deadband=0 lcid=1033"
//   IOPCServer::RemoveGroup    "handle=1 force=0"
//   IOPCSyncIO::Read           "source=1 count=2 handles=7,9"
//   IOPCSyncIO::Write          "count=1 handles=7 types=5"
//   IOPCItemMgt::AddItems      "count=2 ids=Simulation.Static.R8,Bench.R8.1 types=0,8197 active=1,0"
//   IOPCGroupStateMgt::SetState "rate=500 active=1 timeBias=0 deadband=0 lcid=1033 clientHandle=3"
//   IOPCAsyncIO2::Refresh2     "source=2 transaction=0"
// Other methods record their scalar arguments the same way.
//
// Time a Read without a client: create the server through CoGetClassObject, add a group and items,
// and call IOPCSyncIO::Read directly on the group (native/tests/sim has the pattern).
#pragma once

#include "opc/platform.h"

inline constexpr char kSimClsidText[] = "{6A1F3C52-9B47-4E8D-A2C1-5D3E7F901B24}";
inline constexpr char kSimProgId[] = "Velmora.Simulation.1";
inline constexpr char kSimVersionIndependentProgId[] = "Velmora.Simulation";
inline const CLSID CLSID_VelmoraSimulation = {0x6A1F3C52, 0x9B47, 0x4E8D, {0xA2, 0xC1, 0x5D, 0x3E, 0x7F, 0x90, 0x1B, 0x24}};

extern "C" {

// Makes the named method return hr, `times` times (-1 = until cleared; 0 clears the method).
void SimFailNext(const char* method, HRESULT hr, int times);

// Per-item error for reads and writes (synchronous and asynchronous) of the item; S_OK clears it.
void SimSetItemError(const char* itemId, HRESULT hr);

// Null results, where the method allows them: "IOPCServer::GetStatus" (null vendor text),
// "IOPCSyncIO::Read" / "IOPCItemMgt::AddItems" / "IOPCItemMgt::ValidateItems" /
// "IOPCItemMgt::RemoveItems" / "IOPCItemMgt::SetActiveState" / "IOPCSyncIO::Write" (S_OK with null
// arrays), "IOPCGroupStateMgt::GetState" (null name), "IOPCCommon::GetErrorString" and
// "IOPCServer::GetErrorString" (null text), and "values": every BSTR value read or delivered is a
// null BSTR and every array value a VARIANT with a null SAFEARRAY.
void SimSetNullResults(const char* method, int on);

int SimCallCount(const char* method);
// The arguments of the last call of the method ("" if none). Valid on the calling thread until its
// next call of SimLastCallArgs.
const char* SimLastCallArgs(const char* method);
void SimClearCalls();

// Live COM objects of the module by kind: "server", "group", "enum", "connectionpoint",
// "factory", "serverlist"; nullptr counts all.
long SimLiveObjects(const char* kind);

// Sends IOPCShutdown::ShutdownRequest(reason) to every sink connected to a live server (a null
// reason sends a null text). Returns the number of sinks called.
int SimShutdown(const char* reason);

// Delay in milliseconds before asynchronous requests (read, write, refresh) run on the server's
// thread; 0 (the default) runs them at once. A delay lets a test cancel them in time.
void SimSetAsyncDelay(int milliseconds);

// Answers IOPCBrowse::Browse with at most `elements` elements per call, with a continuation point
// (the decimal index of the next element) and the more-elements flag set while more remain;
// 0 (the default) answers at once.
void SimSetBrowsePortion(int elements);

// While `leaves` > 0 the branch "Bench.Many" exists (not listed in its parent) with the leaves
// "0" .. "leaves-1", each answering browses as Bench.R8.0 does (VT_R8, read/write). IOPCBrowse::Browse
// of the branch makes only the elements of its answer and ignores name filters there;
// BrowseOPCItemIDs and GetItemID know the leaves as well. 0 (the default) removes the branch.
void SimSetBenchBranch(int leaves);

// While on, IOPCAsyncIO2::Read, Write and Refresh2 complete on the calling thread before they return
// (OnReadComplete, OnWriteComplete or OnDataChange called inline, as an in-process server may do),
// whatever the asynchronous delay; their cancel ids are valid but Cancel2 finds nothing left to
// cancel. Off by default: completions run on the server's thread.
void SimSetInlineCompletion(int on);

// Sends IOPCDataCallback::OnWriteComplete(transactionId, group's client handle, masterError, ...) on
// the server's thread to every data callback of every group (of a live server) that holds any of
// the items, given as a comma-separated list of item ids: the client handles of the group's items
// with those ids, in the order of the list, each with itemError. Waits until the calls are done;
// returns the number of sinks called.
int SimSendWriteComplete(DWORD transactionId, HRESULT masterError, const char* itemIds, HRESULT itemError);

// While on, every item whose id starts with the prefix (e.g. "Bench.R8.") gets a new value at every
// update of every group that holds it, so that each OnDataChange of a group carries all of its
// active such items. Integers count up (wrapping within their type), reals count up by 1, booleans
// toggle, texts become "<initial text>#<count>"; reads see the new values. Several prefixes may be
// on at once; off removes the one prefix.
void SimSetChangeEveryTick(const char* prefix, int on);

// Microseconds that the server spent on the last subscription update it sent (collecting the
// values and building the OnDataChange arrays, and clearing them afterwards), excluding the time
// inside the callbacks; 0 until an update was sent.
double SimLastTickMicros();

// Microseconds that the callbacks of that update took, as the server's thread saw them (every data
// callback of the group, each from the call to its return); 0 until an update was sent.
double SimLastCallbackMicros();

// Live connection-point connections by sink kind: "datacallback", "shutdown"; nullptr counts all.
long SimConnections(const char* kind);

// Calls that the server made to client sinks since the last reset, by method: "OnDataChange",
// "OnReadComplete", "OnWriteComplete", "OnCancelComplete", "ShutdownRequest" (one per sink called).
// A call is counted just before it is made.
long SimCallbacksMade(const char* method);

// While on, the server behaves as one whose process has died: every method of every object (class
// factory included) answers RPC_E_DISCONNECTED, no subscription update is sent, and switching it on
// drops every connected sink (shutdown and data callbacks, released on the server's threads) as COM
// does for a client of a dead server. Objects live on until the client releases them. Off lets the
// server answer again; SimReset switches it off.
void SimSetDown(int on);

// While on, servers have no IOPCBrowse (QueryInterface answers E_NOINTERFACE), as OPC DA 2 servers;
// their address space is then browsed through IOPCBrowseServerAddressSpace only. SimReset switches it off.
void SimSetWithoutBrowse(int on);

// Clears failures, item errors, null results, the call record, the asynchronous delay, the browse
// portion, inline completion, the items changing at every update, the last update's times, the
// callback counts and the bench branch, and restores every item value. Live objects and
// connections are not touched.
void SimReset();

}  // extern "C"
