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
    static final String IID_IOPCBROWSE = "{39227004-A18F-4B57-8B0A-5235670F4468}";
    private static final String BROWSE = "IOPCBrowse::Browse";
    private static final int E_FAIL = 0x80004005;
    private static final int VT_R8 = 5;
    private static final int VT_BSTR = 8;
    private static final int VT_BOOL = 11;

    record Element(String name, String itemId, boolean isItem, boolean hasChildren, int type, boolean readable,
            boolean writable) {}

    static final class Elements implements BrowseElementCollector {
        final List<Element> calls = new ArrayList<>();

        @Override
        public void add(String name, String itemId, boolean isItem, boolean hasChildren, int type, boolean readable,
                boolean writable) {
            calls.add(new Element(name, itemId, isItem, hasChildren, type, readable, writable));
        }
    }

    private static List<Element> browse(long browser, String itemId) {
        Elements found = new Elements();
        OpcBrowse.browse(browser, itemId, found);
        return found.calls;
    }

    @Test
    void branchesAndItemsWithTypeAndAccessRights() {
        try (SimFixture sim = SimFixture.open()) {
            long browser = sim.query(sim.server, IID_IOPCBROWSE);
            assertEquals(List.of(new Element("Bench", "Bench", false, true, 0, false, false),
                    new Element("Simulation", "Simulation", false, true, 0, false, false)), browse(browser, ""));
            assertEquals("id= continuation= max=0 filter=1 all=0 values=1 ids=1,5", SimControl.lastCallArgs(BROWSE));

            assertEquals(List.of(new Element("ReadOnly", "Simulation.Access.ReadOnly", true, false, VT_R8, true, false),
                    new Element("WriteOnly", "Simulation.Access.WriteOnly", true, false, VT_R8, false, true)),
                    browse(browser, "Simulation.Access"));
            List<Element> statics = browse(browser, "Simulation.Static");
            assertEquals(12, statics.size());
            assertEquals(new Element("BOOL", "Simulation.Static.BOOL", true, false, VT_BOOL, true, true), statics.get(0));
            assertEquals(new Element("BSTR", "Simulation.Static.BSTR", true, false, VT_BSTR, true, true), statics.get(1));
            assertEquals(3, SimControl.callCount(BROWSE));
        }
    }

    @Test
    void portionsAreFollowedThroughTheirContinuationPoints() {
        try (SimFixture sim = SimFixture.open()) {
            long browser = sim.query(sim.server, IID_IOPCBROWSE);
            List<Element> atOnce = browse(browser, "Simulation.Static");
            SimControl.clearCalls();
            SimControl.setBrowsePortion(5);
            assertEquals(atOnce, browse(browser, "Simulation.Static"));
            assertEquals(3, SimControl.callCount(BROWSE));
            assertEquals("id=Simulation.Static continuation=10 max=0 filter=1 all=0 values=1 ids=1,5",
                    SimControl.lastCallArgs(BROWSE));

            // Ten thousand elements in portions, each answer freed before the next call.
            SimControl.setBrowsePortion(4096);
            SimControl.clearCalls();
            List<Element> bench = browse(browser, "Bench.Str");
            assertEquals(10_000, bench.size());
            assertEquals(3, SimControl.callCount(BROWSE));
            assertEquals(10_000, bench.stream().map(Element::itemId).distinct().count());
        }
    }

    @Test
    void aFailingOrRefusedBrowseDeliversNothingAndThrowsNothing() {
        try (SimFixture sim = SimFixture.open()) {
            long browser = sim.query(sim.server, IID_IOPCBROWSE);
            SimControl.failNext(BROWSE, E_FAIL, -1);
            assertEquals(List.of(), browse(browser, "Simulation"));
            assertEquals(1, SimControl.callCount(BROWSE));
            SimControl.failNext(BROWSE, 0, 0);
            assertEquals(List.of(), browse(browser, "No.Such.Branch"));
            assertEquals(List.of(), browse(browser, "Simulation.Static.R8")); // an item has nothing below it

            // A failure in the middle of a portioned browse ends it with what was delivered so far.
            SimControl.setBrowsePortion(5);
            SimControl.clearCalls();
            List<String> names = new ArrayList<>();
            BrowseElementCollector failAfterFive = (name, id, item, children, type, readable, writable) -> {
                if (names.add(name) && names.size() == 5) SimControl.failNext(BROWSE, E_FAIL, 1);
            };
            OpcBrowse.browse(browser, "Simulation.Static", failAfterFive);
            assertEquals(5, names.size());
            assertEquals(2, SimControl.callCount(BROWSE));
        }
    }

    @Test
    void aThrowingCollectorStillGetsEveryElement() {
        try (SimFixture sim = SimFixture.open()) {
            long browser = sim.query(sim.server, IID_IOPCBROWSE);
            SimControl.setBrowsePortion(1);
            List<String> names = new ArrayList<>();
            BrowseElementCollector throwing = (name, id, item, children, type, readable, writable) -> {
                names.add(name);
                throw new IllegalArgumentException(name);
            };
            IllegalArgumentException thrown = assertThrows(IllegalArgumentException.class,
                    () -> OpcBrowse.browse(browser, "Simulation.Quality", throwing));
            assertEquals("Bad", thrown.getMessage());
            assertEquals(List.of("Bad", "Uncertain"), names);
        }
    }

    @Test
    void missingArgumentsAreTracedAndTheServerIsNotCalled() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            long browser = sim.query(sim.server, IID_IOPCBROWSE);
            OpcBrowse.browse(browser, "", null);
            OpcBrowse.browse(0, "", new Elements());
            assertThrows(NoSuchMethodError.class, () -> OpcBrowse.browse(browser, "", new Object()));
            OpcBrowse.browse(browser, null, new Elements());
            assertEquals(0, SimControl.callCount(BROWSE));
            assertEquals(List.of("OpcBrowse::browse-Incoming elements array is null",
                    "OpcBrowse::browse-Incoming elements array is null",
                    "OpcBrowse::browse- elements -add method is null",
                    "OpcBrowse::browse-ID is null"), log.texts());
        }
    }
}
