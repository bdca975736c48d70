package com.velmora.opc.jni.client.da;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;

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
    private static final String IID = "{39C13A4F-011E-11D0-9675-0020AFD8ADB3}";
    private static final String CHANGE = "IOPCBrowseServerAddressSpace::ChangeBrowsePosition";
    private static final String BROWSE_IDS = "IOPCBrowseServerAddressSpace::BrowseOPCItemIDs";
    private static final int E_FAIL = 0x80004005;
    private static final List<String> ROOT = List.of("Bench=Bench", "Simulation=Simulation");

    /** Each add call as "name=itemId". */
    static final class Elements extends ArrayList<String> implements AddressSpaceCollector {
        @Override
        public void add(String name, String itemId) {
            add(name + "=" + itemId);
        }
    }

    private static Elements branches(long browser) {
        Elements found = new Elements();
        OpcBrowseServerAddressSpace.listBranches(browser, found);
        return found;
    }

    @Test
    void positionMovesDownAndBackToTheRootByJumpOrByClimbing() {
        try (SimFixture sim = SimFixture.open()) {
            long browser = sim.query(sim.server, IID);
            assertEquals(1, OpcBrowseServerAddressSpace.queryOrganization(browser));
            OpcBrowseServerAddressSpace.goDown(browser, "Simulation");
            OpcBrowseServerAddressSpace.goDown(browser, "Access");
            Elements leaves = new Elements();
            OpcBrowseServerAddressSpace.listItems(browser, leaves);
            assertEquals(List.of("ReadOnly=Simulation.Access.ReadOnly", "WriteOnly=Simulation.Access.WriteOnly"), leaves);
            assertEquals("type=2 filter= vt=0 rights=0", SimControl.lastCallArgs(BROWSE_IDS));
            List<String> names = new ArrayList<>(); // a collector that throws still gets every element
            assertThrows(IllegalStateException.class, () -> OpcBrowseServerAddressSpace.listItems(browser,
                    (AddressSpaceCollector) (name, id) -> {
                        names.add(name);
                        throw new IllegalStateException(name);
                    }));
            assertEquals(List.of("ReadOnly", "WriteOnly"), names);
            assertEquals(List.of(), branches(browser));

            SimControl.clearCalls();
            OpcBrowseServerAddressSpace.goRoot(browser);
            assertEquals(1, SimControl.callCount(CHANGE));
            assertEquals(ROOT, branches(browser));

            OpcBrowseServerAddressSpace.goDown(browser, "Simulation");
            OpcBrowseServerAddressSpace.goDown(browser, "Static");
            SimControl.failNext(CHANGE, E_FAIL, 1); // the jump to the root is refused: up, up, up (refused at the root)
            SimControl.clearCalls();
            OpcBrowseServerAddressSpace.goRoot(browser);
            assertEquals(4, SimControl.callCount(CHANGE));
            assertEquals(ROOT, branches(browser));
        }
    }

    @Test
    void pathsTenThousandLeavesRejectedBranchesAndFailedCalls() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            long browser = sim.query(sim.server, IID);
            Elements found = new Elements();
            OpcBrowseServerAddressSpace.getGroups(browser, "No.Such.Path", found); // falls back to the root
            assertEquals(ROOT, found);
            SimControl.failNext("IOPCBrowseServerAddressSpace::GetItemID", E_FAIL, 1);
            Elements leaves = new Elements();
            OpcBrowseServerAddressSpace.getItems(browser, "Simulation.Quality", false, leaves);
            assertEquals(List.of("Bad=null", "Uncertain=Simulation.Quality.Uncertain"), leaves);
            Elements flat = new Elements(); // flat names are full ids: names at the root only
            OpcBrowseServerAddressSpace.getItems(browser, "Simulation.Access", true, flat);
            assertEquals(List.of("Simulation.Access.ReadOnly=null", "Simulation.Access.WriteOnly=null"), flat);
            Elements bench = new Elements();
            OpcBrowseServerAddressSpace.getItems(browser, "Bench.R8", false, bench);
            assertEquals(10_000, bench.size());

            HresultException down = assertThrows(HresultException.class,
                    () -> OpcBrowseServerAddressSpace.goDown(browser, "NoSuchBranch"));
            assertEquals(0x80070057, down.getHresult());
            assertEquals(CHANGE, down.getOperation());
            SimControl.failNext(BROWSE_IDS, E_FAIL, 2);
            assertEquals(BROWSE_IDS, assertThrows(HresultException.class,
                    () -> OpcBrowseServerAddressSpace.getGroups(browser, "", new Elements())).getOperation());
            assertEquals(BROWSE_IDS, assertThrows(HresultException.class,
                    () -> OpcBrowseServerAddressSpace.listItems(browser, new Elements())).getOperation());
            assertEquals(List.of(new LogCapture.Line("TRACE", "Native:ChangeBrowsePosition Failed, Calling goRoot \n "),
                    new LogCapture.Line("ERROR", "BrowseServerAddressSpace::ChangeBrowsePosition->goDown failed"),
                    new LogCapture.Line("TRACE", "Native:BrowseOPCItemIDs failed\n ")), log.lines());
        }
    }

    @Test
    void missingArgumentsAreTracedAndTheServerIsNotCalled() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            long browser = sim.query(sim.server, IID);
            assertEquals(1, OpcBrowseServerAddressSpace.queryOrganization(0));
            OpcBrowseServerAddressSpace.goRoot(0);
            OpcBrowseServerAddressSpace.goDown(0, "Simulation");
            OpcBrowseServerAddressSpace.goDown(browser, null);
            OpcBrowseServerAddressSpace.getGroups(browser, "", null);
            assertThrows(NoSuchMethodError.class, () -> OpcBrowseServerAddressSpace.getItems(browser, "", false, "x"));
            OpcBrowseServerAddressSpace.getItems(browser, null, true, new Elements());
            assertThrows(NoSuchMethodError.class, () -> OpcBrowseServerAddressSpace.listBranches(browser, "x"));
            OpcBrowseServerAddressSpace.listItems(0, new Elements());
            assertEquals(0, SimControl.callCount(CHANGE) + SimControl.callCount(BROWSE_IDS));
            assertEquals(List.of("OpcBrowseAddressSpace::goRoot- argument is null",
                    "OpcBrowseAddressSpace::goDown- Argument is null", "OpcBrowseAddressSpace::goDown- Id/browser is null",
                    "OpcBrowseAddressSpace::get- incoming elements array is null",
                    "OpcBrowseAddressSpace::get- ADD method is null", "OpcBrowseAddressSpace::get- Id/browser is null",
                    "OpcBrowseAddressSpace::list- ADD method is null", "OpcBrowseAddressSpace::list- browser is null"),
                    log.texts());
        }
    }
}
