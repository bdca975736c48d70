package com.velmora.opc.jni.client.common;

import static com.velmora.opc.testsupport.Codes.*;
import static com.velmora.opc.testsupport.SimFixture.fails;
import static org.junit.jupiter.api.Assertions.*;

import com.velmora.opc.client.BOpcDeviceDiscoveryResult;
import com.velmora.opc.testsupport.*;
import java.util.Arrays;
import java.util.List;
import org.junit.jupiter.api.Test;

class OpcServerList2Test {

    @Test
    void theSimulationServerIsFoundWithItsDetailsAndTheCallersOwnStrings() {
        TestSupport.assumeNotWine(TestSupport.WINE_NO_REMOTE_ACTIVATION);
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            long serverLists = SimControl.liveObjects("serverlist");
            String host = new String("localhost");
            String category = CATID_OPCDASERVER20.toLowerCase();
            BOpcDeviceDiscoveryResult[] found = OpcServerList2.discoverServers(host, category);
            BOpcDeviceDiscoveryResult simulation = Arrays.stream(found)
                    .filter(r -> SimControl.CLSID.equals(r.getClsid())).findFirst().orElseThrow();
            assertEquals(SimControl.PROG_ID, simulation.getProgId());
            assertEquals("Velmora.Simulation", simulation.getVersionIndependentProgId());
            assertNotNull(simulation.getDescription());
            assertSame(host, found[found.length - 1].getHost());
            assertSame(category, found[found.length - 1].getCategory());
            assertEquals(found.length, SimControl.callCount("IOPCServerList2::GetClassDetails"));

            assertEquals(0, OpcServerList2.discoverServers(host, "{00000000-0000-0000-0000-00000000ABCD}").length);
            assertEquals(0, OpcServerList2.discoverServers(host, "not a category").length);
            assertEquals(serverLists, SimControl.liveObjects("serverlist"));
            assertEquals(List.of(), log.texts());
        }
    }

    @Test
    void failuresAreLoggedAsErrorsWithTheServersHresultPending() {
        TestSupport.assumeNotWine(TestSupport.WINE_NO_REMOTE_ACTIVATION);
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            assertNull(OpcServerList2.discoverServers(null, CATID_OPCDASERVER20));
            fails("CoGetClassObject",
                    () -> OpcServerList2.discoverServers("no-such-host.invalid", CATID_OPCDASERVER20));
            SimControl.failNext("IOPCServerList2::EnumClassesOfCategories", E_FAIL, 1);
            fails("IOPCServerList2::EnumClassesOfCategories",
                    () -> OpcServerList2.discoverServers("localhost", CATID_OPCDASERVER20));
            // Details that cannot be read end the fill.
            SimControl.failNext("IOPCServerList2::GetClassDetails", E_ACCESSDENIED, 1);
            fails("IOPCServerList2::GetClassDetails",
                    () -> OpcServerList2.discoverServers("localhost", CATID_OPCDASERVER20));

            assertEquals(List.of("OpcServerList::Construction failed, hostid or category id is null",
                    "OpcServerList::ServerList interface object is null",
                    "OpcServerList2 Failed to get class factory for IOPCServerList2",
                    "OpcServerList::ServerList interface object is null", "OpcServerList2 Failed to create enumerator",
                    "OpcServerList::Discovery enumerator object is null"), log.texts());
            assertEquals(List.of("ERROR"), log.levels());
        }
    }
}
