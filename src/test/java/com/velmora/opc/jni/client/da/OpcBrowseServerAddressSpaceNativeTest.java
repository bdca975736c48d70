package com.velmora.opc.jni.client.da;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.velmora.opc.jni.HresultException;
import com.velmora.opc.testsupport.LedgerCheck;
import com.velmora.opc.testsupport.LogCapture;
import com.velmora.opc.testsupport.SimControl;
import com.velmora.opc.testsupport.SimFixture;
import java.util.ArrayList;
import java.util.List;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.extension.ExtendWith;

@ExtendWith(LedgerCheck.class)
class OpcBrowseServerAddressSpaceNativeTest {
    static final String IID_IOPCBROWSESERVERADDRESSSPACE = "{39C13A4F-011E-11D0-9675-0020AFD8ADB3}";
    private static final String CHANGE = "IOPCBrowseServerAddressSpace::ChangeBrowsePosition";
    private static final String BROWSE_IDS = "IOPCBrowseServerAddressSpace::BrowseOPCItemIDs";
    private static final int E_FAIL = 0x80004005;
    private static final int E_INVALIDARG = 0x80070057;
    private static final List<String> ROOT_BRANCHES = List.of("Bench=Bench", "Simulation=Simulation");

    /** The add calls, each as "name=itemId". */
    static final class Elements implements AddressSpaceCollector {
        final List<String> calls = new ArrayList<>();

        @Override
        public void add(String name, String itemId) {
            calls.add(name + "=" + itemId);
        }
    }

    private static List<String> listBranches(long browser) {
        Elements found = new Elements();
        OpcBrowseServerAddressSpace.listBranches(browser, found);
        return found.calls;
    }

    @Test
    void positionMovesDownAndBackToTheRoot() {
        try (SimFixture sim = SimFixture.open()) {
            long browser = sim.query(sim.server, IID_IOPCBROWSESERVERADDRESSSPACE);
            assertEquals(1, OpcBrowseServerAddressSpace.queryOrganization(browser));
            assertEquals(1, OpcBrowseServerAddressSpace.queryOrganization(0));
            SimControl.failNext("IOPCBrowseServerAddressSpace::QueryOrganization", E_FAIL, 1);
            assertEquals(1, OpcBrowseServerAddressSpace.queryOrganization(browser));

            assertEquals(ROOT_BRANCHES, listBranches(browser));
            OpcBrowseServerAddressSpace.goDown(browser, "Simulation");
            OpcBrowseServerAddressSpace.goDown(browser, "Access");
            Elements leaves = new Elements();
            OpcBrowseServerAddressSpace.listItems(browser, leaves);
            assertEquals(List.of("ReadOnly=Simulation.Access.ReadOnly", "WriteOnly=Simulation.Access.WriteOnly"),
                    leaves.calls);
            assertEquals(List.of(), listBranches(browser)); // nothing below: no add call, no exception
            assertEquals("type=1 filter= vt=0 rights=0", SimControl.lastCallArgs(BROWSE_IDS));

            // A server that jumps to the root takes one call.
            SimControl.clearCalls();
            OpcBrowseServerAddressSpace.goRoot(browser);
            assertEquals(1, SimControl.callCount(CHANGE));
            assertEquals("direction=3 name=", SimControl.lastCallArgs(CHANGE));
            assertEquals(ROOT_BRANCHES, listBranches(browser));

            // One that refuses the jump is climbed until the step up fails at the root.
            OpcBrowseServerAddressSpace.goDown(browser, "Simulation");
            OpcBrowseServerAddressSpace.goDown(browser, "Static");
            SimControl.failNext(CHANGE, E_FAIL, 1);
            SimControl.clearCalls();
            OpcBrowseServerAddressSpace.goRoot(browser);
            assertEquals(4, SimControl.callCount(CHANGE));
            assertEquals("direction=1 name=", SimControl.lastCallArgs(CHANGE));
            assertEquals(ROOT_BRANCHES, listBranches(browser));
        }
    }

    @Test
    void failuresOfTheServerReachJavaWithTheirTexts() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            long browser = sim.query(sim.server, IID_IOPCBROWSESERVERADDRESSSPACE);
            HresultException down = assertThrows(HresultException.class,
                    () -> OpcBrowseServerAddressSpace.goDown(browser, "NoSuchBranch"));
            assertEquals(E_INVALIDARG, down.getHresult());
            assertEquals(CHANGE, down.getOperation());
            assertEquals(List.of(new LogCapture.Line("ERROR", "BrowseServerAddressSpace::ChangeBrowsePosition->goDown failed")),
                    log.lines());

            SimControl.failNext(BROWSE_IDS, E_FAIL, 2);
            HresultException listed = assertThrows(HresultException.class,
                    () -> OpcBrowseServerAddressSpace.listItems(browser, new Elements()));
            assertEquals(E_FAIL, listed.getHresult());
            assertEquals(BROWSE_IDS, listed.getOperation());
            Elements none = new Elements();
            HresultException got = assertThrows(HresultException.class,
                    () -> OpcBrowseServerAddressSpace.getGroups(browser, "", none));
            assertEquals(BROWSE_IDS, got.getOperation());
            assertEquals(List.of(), none.calls);
            assertEquals(List.of("BrowseServerAddressSpace::ChangeBrowsePosition->goDown failed",
                    "Native:BrowseOPCItemIDs failed\n "), log.texts());
        }
    }

    @Test
    void getMovesToThePathOrFallsBackToTheRoot() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            long browser = sim.query(sim.server, IID_IOPCBROWSESERVERADDRESSSPACE);
            Elements groups = new Elements();
            OpcBrowseServerAddressSpace.getGroups(browser, "Simulation.Static", groups);
            assertEquals(List.of(), groups.calls);
            OpcBrowseServerAddressSpace.getGroups(browser, "", groups);
            assertEquals(ROOT_BRANCHES, groups.calls);

            Elements leaves = new Elements();
            OpcBrowseServerAddressSpace.getItems(browser, "Simulation.Quality", false, leaves);
            assertEquals(List.of("Bad=Simulation.Quality.Bad", "Uncertain=Simulation.Quality.Uncertain"), leaves.calls);
            assertEquals(List.of(), listBranches(browser)); // the position stays at the path

            // A rejected path: logged, the position goes to the root, and the root is listed.
            Elements fallback = new Elements();
            OpcBrowseServerAddressSpace.getGroups(browser, "No.Such.Path", fallback);
            assertEquals(ROOT_BRANCHES, fallback.calls);
            assertEquals(List.of(new LogCapture.Line("TRACE", "Native:ChangeBrowsePosition Failed, Calling goRoot \n ")),
                    log.lines());

            // Flat names below a branch are not names at that position: no item id comes back for them.
            Elements flat = new Elements();
            OpcBrowseServerAddressSpace.getItems(browser, "Simulation.Access", true, flat);
            assertEquals("type=3 filter= vt=0 rights=0", SimControl.lastCallArgs(BROWSE_IDS));
            assertEquals(List.of("Simulation.Access.ReadOnly=null", "Simulation.Access.WriteOnly=null"), flat.calls);
            // A failed GetItemID gives null for that element alone.
            Elements partly = new Elements();
            SimControl.failNext("IOPCBrowseServerAddressSpace::GetItemID", E_FAIL, 1);
            OpcBrowseServerAddressSpace.getItems(browser, "Simulation.Access", false, partly);
            assertEquals(List.of("ReadOnly=null", "WriteOnly=Simulation.Access.WriteOnly"), partly.calls);
        }
    }

    @Test
    void tenThousandLeavesAndAFlatListingOfEverything() {
        try (SimFixture sim = SimFixture.open()) {
            long browser = sim.query(sim.server, IID_IOPCBROWSESERVERADDRESSSPACE);
            Elements bench = new Elements();
            OpcBrowseServerAddressSpace.getItems(browser, "Bench.R8", false, bench);
            assertEquals(10_000, bench.calls.size());
            assertTrue(bench.calls.contains("9999=Bench.R8.9999"));

            Elements all = new Elements();
            OpcBrowseServerAddressSpace.getItems(browser, "", true, all);
            assertTrue(all.calls.size() > 20_000, () -> all.calls.size() + " items");
            assertTrue(all.calls.contains("Simulation.Sine.R8=Simulation.Sine.R8"));
            assertTrue(all.calls.contains("Bench.Str.0=Bench.Str.0"));
        }
    }

    @Test
    void aThrowingCollectorStillGetsEveryElement() {
        try (SimFixture sim = SimFixture.open()) {
            long browser = sim.query(sim.server, IID_IOPCBROWSESERVERADDRESSSPACE);
            List<String> names = new ArrayList<>();
            AddressSpaceCollector throwing = (name, id) -> {
                names.add(name);
                throw new IllegalStateException(name);
            };
            IllegalStateException thrown = assertThrows(IllegalStateException.class,
                    () -> OpcBrowseServerAddressSpace.getItems(browser, "Simulation.Quality", false, throwing));
            assertEquals("Bad", thrown.getMessage());
            assertEquals(List.of("Bad", "Uncertain"), names);
            assertThrows(IllegalStateException.class, () -> OpcBrowseServerAddressSpace.listItems(browser, throwing));
            assertEquals(4, names.size());
        }
    }

    @Test
    void missingArgumentsAreTracedAndTheServerIsNotCalled() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            long browser = sim.query(sim.server, IID_IOPCBROWSESERVERADDRESSSPACE);
            OpcBrowseServerAddressSpace.goRoot(0);
            OpcBrowseServerAddressSpace.goDown(0, "Simulation");
            OpcBrowseServerAddressSpace.goDown(browser, null);
            OpcBrowseServerAddressSpace.getGroups(browser, "", null);
            assertThrows(NoSuchMethodError.class, () -> OpcBrowseServerAddressSpace.getItems(browser, "", false, new Object()));
            OpcBrowseServerAddressSpace.getItems(browser, null, true, new Elements());
            OpcBrowseServerAddressSpace.getGroups(0, "", new Elements());
            OpcBrowseServerAddressSpace.listItems(browser, null);
            assertThrows(NoSuchMethodError.class, () -> OpcBrowseServerAddressSpace.listBranches(browser, "no add"));
            OpcBrowseServerAddressSpace.listBranches(0, new Elements());
            assertEquals(0, SimControl.callCount(CHANGE) + SimControl.callCount(BROWSE_IDS)
                    + SimControl.callCount("IOPCBrowseServerAddressSpace::GetItemID"));
            assertEquals(List.of("OpcBrowseAddressSpace::goRoot- argument is null",
                    "OpcBrowseAddressSpace::goDown- Argument is null",
                    "OpcBrowseAddressSpace::goDown- Id/browser is null",
                    "OpcBrowseAddressSpace::get- incoming elements array is null",
                    "OpcBrowseAddressSpace::get- ADD method is null",
                    "OpcBrowseAddressSpace::get- Id/browser is null",
                    "OpcBrowseAddressSpace::get- Id/browser is null",
                    "OpcBrowseAddressSpace::list- incoming elements array is null",
                    "OpcBrowseAddressSpace::list- ADD method is null",
                    "OpcBrowseAddressSpace::list- browser is null"), log.texts());
            assertTrue(log.lines().stream().allMatch(line -> line.level().equals("TRACE")), log.lines()::toString);
        }
    }
}
