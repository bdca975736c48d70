package com.velmora.opc.jni.client.da;

import static com.velmora.opc.testsupport.Codes.*;
import static com.velmora.opc.testsupport.SimFixture.fails;
import static org.junit.jupiter.api.Assertions.*;

import com.velmora.opc.testsupport.*;
import com.velmora.opc.testsupport.LogCapture.Line;
import java.util.List;
import org.junit.jupiter.api.Test;

class OpcBrowseServerAddressSpaceTest {
    private static final String CHANGE = "IOPCBrowseServerAddressSpace::ChangeBrowsePosition";
    private static final String BROWSE_IDS = "IOPCBrowseServerAddressSpace::BrowseOPCItemIDs";
    private static final List<String> ROOT = List.of("Bench=Bench", "Simulation=Simulation");

    private static List<String> branches(long browser) {
        Recorder found = new Recorder();
        OpcBrowseServerAddressSpace.listBranches(browser, found);
        return found.calls();
    }

    private static List<String> items(long browser, String path, boolean flat) {
        Recorder found = new Recorder();
        OpcBrowseServerAddressSpace.getItems(browser, path, flat, found);
        return found.calls();
    }

    @Test
    void positionMovesDownAndBackToTheRootByJumpOrByClimbing() {
        try (SimFixture sim = SimFixture.open()) {
            long browser = sim.query(sim.server, IID_IOPCBROWSESERVERADDRESSSPACE);
            assertEquals(1, OpcBrowseServerAddressSpace.queryOrganization(browser));
            OpcBrowseServerAddressSpace.goDown(browser, "Simulation");
            OpcBrowseServerAddressSpace.goDown(browser, "Access");
            // A collector that throws still gets every element.
            Recorder leaves = new Recorder("");
            assertThrows(IllegalStateException.class, () -> OpcBrowseServerAddressSpace.listItems(browser, leaves));
            assertEquals(List.of("ReadOnly=Simulation.Access.ReadOnly", "WriteOnly=Simulation.Access.WriteOnly"),
                    leaves.calls());
            assertEquals("type=2 filter= vt=0 rights=0", SimControl.lastCallArgs(BROWSE_IDS));
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
            long browser = sim.query(sim.server, IID_IOPCBROWSESERVERADDRESSSPACE);
            Recorder found = new Recorder();
            OpcBrowseServerAddressSpace.getGroups(browser, "No.Such.Path", found); // falls back to the root
            assertEquals(ROOT, found.calls());
            SimControl.failNext("IOPCBrowseServerAddressSpace::GetItemID", E_FAIL, 1);
            assertEquals(List.of("Bad=null", "Uncertain=Simulation.Quality.Uncertain"),
                    items(browser, "Simulation.Quality", false));
            // Flat names are full ids: names at the root only.
            assertEquals(List.of("Simulation.Access.ReadOnly=null", "Simulation.Access.WriteOnly=null"),
                    items(browser, "Simulation.Access", true));
            assertEquals(10_000, items(browser, "Bench.R8", false).size());

            assertEquals(E_INVALIDARG, fails(CHANGE, () -> OpcBrowseServerAddressSpace.goDown(browser, "NoSuchBranch"))
                    .getHresult());
            SimControl.failNext(BROWSE_IDS, E_FAIL, 2);
            fails(BROWSE_IDS, () -> OpcBrowseServerAddressSpace.getGroups(browser, "", new Recorder()));
            fails(BROWSE_IDS, () -> OpcBrowseServerAddressSpace.listItems(browser, new Recorder()));
            assertEquals(List.of(new Line("TRACE", "Native:ChangeBrowsePosition Failed, Calling goRoot \n "),
                    new Line("ERROR", "BrowseServerAddressSpace::ChangeBrowsePosition->goDown failed"),
                    new Line("TRACE", "Native:BrowseOPCItemIDs failed\n ")), log.lines());
        }
    }

    @Test
    void missingArgumentsAreTracedAndTheServerIsNotCalled() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            long browser = sim.query(sim.server, IID_IOPCBROWSESERVERADDRESSSPACE);
            assertEquals(1, OpcBrowseServerAddressSpace.queryOrganization(0));
            OpcBrowseServerAddressSpace.goRoot(0);
            OpcBrowseServerAddressSpace.goDown(0, "Simulation");
            OpcBrowseServerAddressSpace.goDown(browser, null);
            OpcBrowseServerAddressSpace.getGroups(browser, "", null);
            assertThrows(NoSuchMethodError.class, () -> OpcBrowseServerAddressSpace.getItems(browser, "", false, "x"));
            OpcBrowseServerAddressSpace.getItems(browser, null, true, new Recorder());
            assertThrows(NoSuchMethodError.class, () -> OpcBrowseServerAddressSpace.listBranches(browser, "x"));
            OpcBrowseServerAddressSpace.listItems(0, new Recorder());
            assertEquals(0, SimControl.callCount(CHANGE) + SimControl.callCount(BROWSE_IDS));
            assertEquals(List.of("OpcBrowseAddressSpace::goRoot- argument is null",
                    "OpcBrowseAddressSpace::goDown- Argument is null",
                    "OpcBrowseAddressSpace::goDown- Id/browser is null",
                    "OpcBrowseAddressSpace::get- incoming elements array is null",
                    "OpcBrowseAddressSpace::get- ADD method is null", "OpcBrowseAddressSpace::get- Id/browser is null",
                    "OpcBrowseAddressSpace::list- ADD method is null", "OpcBrowseAddressSpace::list- browser is null"),
                    log.texts());
        }
    }
}
