package com.velmora.opc.jni.client.common;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNotNull;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertSame;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.velmora.opc.client.BOpcDeviceDiscoveryResult;
import com.velmora.opc.jni.HresultException;
import com.velmora.opc.testsupport.LedgerCheck;
import com.velmora.opc.testsupport.LogCapture;
import com.velmora.opc.testsupport.SimControl;
import com.velmora.opc.testsupport.SimFixture;
import java.util.Arrays;
import java.util.List;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.extension.ExtendWith;

@ExtendWith(LedgerCheck.class)
class OpcServerList2NativeTest {
    private static final String DA20 = "{63D5F432-CFE4-11D1-B2C8-0060083BA1FB}";
    private static final int E_FAIL = 0x80004005;
    private static final int E_ACCESSDENIED = 0x80070005;

    @Test
    void theSimulationServerIsFoundWithItsDetailsAndTheCallersOwnStrings() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            long serverLists = SimControl.liveObjects("serverlist");
            String host = new String("localhost");
            String category = new String(DA20.toLowerCase());
            BOpcDeviceDiscoveryResult[] found = OpcServerList2.discoverServers(host, category);
            assertNotNull(found);
            BOpcDeviceDiscoveryResult simulation = Arrays.stream(found)
                    .filter(r -> SimControl.CLSID.equals(r.getClsid())).findFirst().orElseThrow();
            assertEquals(SimControl.PROG_ID, simulation.getProgId());
            assertEquals("Velmora.Simulation", simulation.getVersionIndependentProgId());
            assertNotNull(simulation.getDescription());
            for (BOpcDeviceDiscoveryResult result : found) {
                assertSame(host, result.getHost());
                assertSame(category, result.getCategory());
            }
            assertEquals(1, SimControl.callCount("IOPCServerList2::EnumClassesOfCategories"));
            assertEquals(found.length, SimControl.callCount("IOPCServerList2::GetClassDetails"));

            // No server of the category, or a category text that names none: an empty array.
            assertEquals(0, OpcServerList2.discoverServers(host, "{00000000-0000-0000-0000-00000000ABCD}").length);
            assertEquals(0, OpcServerList2.discoverServers(host, "not a category").length);
            assertEquals(serverLists, SimControl.liveObjects("serverlist"));
            assertEquals(List.of(), log.texts());
        }
    }

    @Test
    void failuresOnTheWayToTheEnumerationAreLoggedAsErrorsAndGiveNull() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            assertNull(OpcServerList2.discoverServers(null, DA20));
            assertNull(OpcServerList2.discoverServers("localhost", null));
            assertEquals(List.of("OpcServerList::Construction failed, hostid or category id is null",
                    "OpcServerList::ServerList interface object is null",
                    "OpcServerList::Construction failed, hostid or category id is null",
                    "OpcServerList::ServerList interface object is null"), log.texts());

            HresultException unreachable = assertThrows(HresultException.class,
                    () -> OpcServerList2.discoverServers("no-such-host.invalid", DA20));
            assertEquals("CoGetClassObject", unreachable.getOperation());
            assertTrue(unreachable.getHresult() < 0);

            SimControl.failNext("IClassFactory::CreateInstance", E_ACCESSDENIED, 1);
            HresultException refused = assertThrows(HresultException.class,
                    () -> OpcServerList2.discoverServers("localhost", DA20));
            assertEquals("IClassFactory::CreateInstance", refused.getOperation());
            assertEquals(E_ACCESSDENIED, refused.getHresult());

            SimControl.failNext("IOPCServerList2::EnumClassesOfCategories", E_FAIL, 1);
            HresultException noEnumerator = assertThrows(HresultException.class,
                    () -> OpcServerList2.discoverServers("localhost", DA20));
            assertEquals("IOPCServerList2::EnumClassesOfCategories", noEnumerator.getOperation());

            assertEquals(List.of("OpcServerList2 Failed to get class factory for IOPCServerList2",
                    "OpcServerList::ServerList interface object is null",
                    "OpcServerList2 Failed to instantiate IOPCServerList2",
                    "OpcServerList::ServerList interface object is null",
                    "OpcServerList2 Failed to create enumerator",
                    "OpcServerList::Discovery enumerator object is null"),
                    log.texts().subList(4, log.texts().size()));
            assertEquals(List.of("ERROR"), log.lines().stream().map(LogCapture.Line::level).distinct().toList());
        }
    }

    @Test
    void unreadableClassDetailsEndTheFillWithTheServersHresultAndFreeEverything() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            SimControl.failNext("IOPCServerList2::GetClassDetails", E_ACCESSDENIED, 1);
            HresultException failed = assertThrows(HresultException.class,
                    () -> OpcServerList2.discoverServers("localhost", DA20));
            assertEquals("IOPCServerList2::GetClassDetails", failed.getOperation());
            assertEquals(E_ACCESSDENIED, failed.getHresult());
            assertEquals(1, SimControl.callCount("IOPCServerList2::GetClassDetails"));
            assertEquals(List.of(), log.texts());
        }
    }
}
