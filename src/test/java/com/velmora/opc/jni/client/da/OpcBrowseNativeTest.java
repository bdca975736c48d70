package com.velmora.opc.jni.client.da;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;

import com.velmora.opc.testsupport.LedgerCheck;
import com.velmora.opc.testsupport.LogCapture;
import com.velmora.opc.testsupport.SimControl;
import com.velmora.opc.testsupport.SimFixture;
import java.util.ArrayList;
import java.util.List;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.extension.ExtendWith;

@ExtendWith(LedgerCheck.class)
class OpcBrowseNativeTest {
    private static final String IID = "{39227004-A18F-4B57-8B0A-5235670F4468}";
    private static final String BROWSE = "IOPCBrowse::Browse";
    private static final int E_FAIL = 0x80004005;

    record Element(String name, String itemId, boolean isItem, boolean hasChildren, int type, boolean readable,
            boolean writable) {}

    static final class Elements extends ArrayList<Element> implements BrowseElementCollector {
        @Override
        public void add(String name, String id, boolean item, boolean children, int type, boolean read, boolean write) {
            add(new Element(name, id, item, children, type, read, write));
        }
    }

    private static Elements browse(long browser, String itemId) {
        Elements found = new Elements();
        OpcBrowse.browse(browser, itemId, found);
        return found;
    }

    @Test
    void branchesAndItemsWithTypeAndAccessRightsInPortions() {
        try (SimFixture sim = SimFixture.open()) {
            long browser = sim.query(sim.server, IID);
            assertEquals(List.of(new Element("Bench", "Bench", false, true, 0, false, false),
                    new Element("Simulation", "Simulation", false, true, 0, false, false)), browse(browser, ""));
            assertEquals("id= continuation= max=0 filter=1 all=0 values=1 ids=1,5", SimControl.lastCallArgs(BROWSE));
            assertEquals(List.of(new Element("ReadOnly", "Simulation.Access.ReadOnly", true, false, 5, true, false),
                    new Element("WriteOnly", "Simulation.Access.WriteOnly", true, false, 5, false, true)),
                    browse(browser, "Simulation.Access"));
            Elements atOnce = browse(browser, "Simulation.Static");
            assertEquals(new Element("BOOL", "Simulation.Static.BOOL", true, false, 11, true, true), atOnce.get(0));

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
            long browser = sim.query(sim.server, IID);
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
            names.clear();
            BrowseElementCollector throwing = (name, id, item, children, type, readable, writable) -> {
                names.add(name);
                throw new IllegalArgumentException(name);
            };
            assertEquals("Bad", assertThrows(IllegalArgumentException.class,
                    () -> OpcBrowse.browse(browser, "Simulation.Quality", throwing)).getMessage());
            assertEquals(List.of("Bad", "Uncertain"), names);
        }
    }

    @Test
    void missingArgumentsAreTracedAndTheServerIsNotCalled() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            long browser = sim.query(sim.server, IID);
            OpcBrowse.browse(browser, "", null);
            OpcBrowse.browse(0, "", new Elements());
            assertThrows(NoSuchMethodError.class, () -> OpcBrowse.browse(browser, "", "no add"));
            OpcBrowse.browse(browser, null, new Elements());
            assertEquals(0, SimControl.callCount(BROWSE));
            assertEquals(List.of("OpcBrowse::browse-Incoming elements array is null",
                    "OpcBrowse::browse-Incoming elements array is null", "OpcBrowse::browse- elements -add method is null",
                    "OpcBrowse::browse-ID is null"), log.texts());
        }
    }
}
