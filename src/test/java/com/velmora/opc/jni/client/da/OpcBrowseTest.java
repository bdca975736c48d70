package com.velmora.opc.jni.client.da;

import static com.velmora.opc.testsupport.Codes.*;
import static org.junit.jupiter.api.Assertions.*;

import com.velmora.opc.testsupport.*;
import java.util.ArrayList;
import java.util.List;
import org.junit.jupiter.api.Test;

class OpcBrowseTest {
    private static final String BROWSE = "IOPCBrowse::Browse";

    private static List<String> browse(long browser, String itemId) {
        Recorder found = new Recorder();
        OpcBrowse.browse(browser, itemId, found);
        return found.calls();
    }

    @Test
    void branchesAndItemsWithTypeAndAccessRightsInPortions() {
        try (SimFixture sim = SimFixture.open()) {
            long browser = sim.query(sim.server, IID_IOPCBROWSE);
            assertEquals(List.of("Bench=Bench branch+ vt0 --", "Simulation=Simulation branch+ vt0 --"),
                    browse(browser, ""));
            assertEquals("id= continuation= max=0 filter=1 all=0 values=1 ids=1,5", SimControl.lastCallArgs(BROWSE));
            assertEquals(List.of("ReadOnly=Simulation.Access.ReadOnly item vt5 r-",
                    "WriteOnly=Simulation.Access.WriteOnly item vt5 -w"), browse(browser, "Simulation.Access"));
            List<String> atOnce = browse(browser, "Simulation.Static");
            assertEquals("BOOL=Simulation.Static.BOOL item vt11 rw", atOnce.get(0));

            SimControl.setBrowsePortion(5); // 12 items: 5, 5 and 2, each later call with the point the last gave
            SimControl.clearCalls();
            assertEquals(atOnce, browse(browser, "Simulation.Static"));
            assertEquals(3, SimControl.callCount(BROWSE));
            assertEquals("id=Simulation.Static continuation=10 max=0 filter=1 all=0 values=1 ids=1,5",
                    SimControl.lastCallArgs(BROWSE));
            SimControl.setBrowsePortion(4096);
            assertEquals(10_000, browse(browser, "Bench.Str").size());
        }
    }

    @Test
    void failingCallsAndThrowingCollectorsEndWithWhatWasDelivered() {
        try (SimFixture sim = SimFixture.open()) {
            long browser = sim.query(sim.server, IID_IOPCBROWSE);
            assertEquals(List.of(), browse(browser, "No.Such.Branch"));
            SimControl.setBrowsePortion(5);
            SimControl.clearCalls();
            List<String> names = new ArrayList<>();
            BrowseElementCollector failAfterFive = (name, id, item, children, type, readable, writable) -> {
                if (names.add(name) && names.size() == 5) SimControl.failNext(BROWSE, E_FAIL, 1);
            };
            OpcBrowse.browse(browser, "Simulation.Static", failAfterFive);
            assertEquals(5, names.size());
            assertEquals(2, SimControl.callCount(BROWSE));

            SimControl.setBrowsePortion(1);
            Recorder throwing = new Recorder("");
            assertEquals("Bad=Simulation.Quality.Bad item vt5 r-", assertThrows(IllegalStateException.class,
                    () -> OpcBrowse.browse(browser, "Simulation.Quality", throwing)).getMessage());
            assertEquals(List.of("Bad", "Uncertain"), throwing.calls().stream().map(c -> c.split("=")[0]).toList());
        }
    }

    @Test
    void missingArgumentsAreTracedAndTheServerIsNotCalled() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            long browser = sim.query(sim.server, IID_IOPCBROWSE);
            OpcBrowse.browse(browser, "", null);
            OpcBrowse.browse(0, "", new Recorder());
            assertThrows(NoSuchMethodError.class, () -> OpcBrowse.browse(browser, "", "no add"));
            OpcBrowse.browse(browser, null, new Recorder());
            assertEquals(0, SimControl.callCount(BROWSE));
            assertEquals(List.of("OpcBrowse::browse-Incoming elements array is null",
                    "OpcBrowse::browse-Incoming elements array is null",
                    "OpcBrowse::browse- elements -add method is null",
                    "OpcBrowse::browse-ID is null"), log.texts());
        }
    }
}
