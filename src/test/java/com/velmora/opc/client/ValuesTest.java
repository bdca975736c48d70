package com.velmora.opc.client;

import static org.junit.jupiter.api.Assertions.*;

import java.time.Instant;
import org.junit.jupiter.api.Test;

class ValuesTest {

    @Test
    void qualityWordsUseTheLowByteOnly() {
        assertEquals("good", Quality.describe(0xABC0));
        assertEquals("good: local override", Quality.describe(0xD8));
        assertEquals("bad: comm failure", Quality.describe(0x18));
        assertEquals("bad", Quality.describe(0x00));
        assertEquals("uncertain: last usable value, low limited", Quality.describe(0x45));
        assertEquals("bad: high limited", Quality.describe(0x02));
        assertEquals("unknown (0x80)", Quality.describe(0x80));
        assertTrue(Quality.isGood(0xD8));
        assertFalse(Quality.isGood(0x40));
    }

    @Test
    void valueTextDropsTheFractionOfWholeNumbersOnly() {
        assertEquals("42", value(42.0).valueText());
        assertEquals("-3", value(-3.0).valueText());
        assertEquals("12.5", value(12.5).valueText());
        assertEquals("1.0E20", value(1e20).valueText());
        assertEquals("NaN", value(Double.NaN).valueText());
        assertEquals("true", value(Boolean.TRUE).valueText());
        assertEquals("1.3,2.0", value("1.3,2.0").valueText());
        assertEquals("", value(null).valueText());
    }

    @Test
    void typeNamesMarkArraysAndUnknownCodes() {
        assertEquals("R8", VarTypes.name(5));
        assertEquals("UI4[]", VarTypes.name(0x2013));
        assertEquals("VT 99", VarTypes.name(99));
        assertEquals("1,-2,3", VarTypes.arrayText(new int[] {1, -2, 3}));
        assertEquals("1,2.5", VarTypes.arrayText(new double[] {1.0, 2.5}));
        assertEquals("true,false", VarTypes.arrayText(new boolean[] {true, false}));
        assertEquals(Boolean.FALSE, VarTypes.toBoolean(" FALSE "));
        assertNull(VarTypes.toBoolean("2"));
        assertNull(VarTypes.toDouble("12,5"));
    }

    @Test
    void aFailedItemIsAValueWithItsError() {
        ItemValue failed = new ItemValue("X", null, 0, null, 0xC0040006);
        assertTrue(failed.isFailed());
        assertFalse(failed.isGood());
        assertEquals("0xC0040006 (OPC_E_BADRIGHTS)", failed.errorText());
        Item rejected = new Item("X", 1, 0, 0, 0, 0xC0040007);
        assertFalse(rejected.isValid());
        assertEquals("0xC0040007 (OPC_E_UNKNOWNITEMID)", rejected.errorText());
    }

    private static ItemValue value(Object v) {
        return new ItemValue("i", v, 0xC0, Instant.EPOCH, 0);
    }
}
