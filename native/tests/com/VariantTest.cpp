// VARIANT: initialisation, clearing by type, deep copies.
#include "ComTestSupport.h"

#include <cstring>

static_assert(sizeof(void*) != 8 || sizeof(VARIANT) == 24, "VARIANT is 24 bytes on 64-bit");
static_assert(sizeof(DECIMAL) == 16, "DECIMAL overlays the whole VARIANT head");

namespace {

VARIANT variant(VARTYPE vt) {
    VARIANT v;
    VariantInit(&v);
    v.vt = vt;
    return v;
}

}  // namespace

TEST(Variant, InitZeroesTheWholeStructureAndClearKeepsValueBitsOfPlainTypes) {
    VARIANT v;
    std::memset(&v, 0xA5, sizeof(v));
    VariantInit(&v);
    const VARIANT zero{};
    EXPECT_EQ(0, std::memcmp(&zero, &v, sizeof(v)));
    v.vt = VT_I4;
    v.lVal = 42;
    EXPECT_EQ(S_OK, VariantClear(&v));
    EXPECT_EQ(VT_EMPTY, v.vt);
    EXPECT_EQ(42, v.lVal);
}

TEST(Variant, InvalidTypesAreRefusedAndLeftAlone) {
    LedgerScope ledger;
    const VARTYPE invalid[] = {15, VT_VOID, VT_HRESULT, VT_PTR, VT_SAFEARRAY, VT_LPWSTR, VT_BYREF | VT_EMPTY,
                               VT_ARRAY | VT_NULL, VT_VECTOR | VT_I4, VT_RESERVED | VT_I4, VT_INT_PTR};
    for (VARTYPE vt : invalid) {
        VARIANT v = variant(vt);
        v.llVal = 0x1122334455667788LL;
        EXPECT_EQ(DISP_E_BADVARTYPE, VariantClear(&v)) << "vt " << vt;
        EXPECT_EQ(vt, v.vt);
        EXPECT_EQ(0x1122334455667788LL, v.llVal);
    }
    VARIANT dest = variant(VT_BSTR);
    dest.bstrVal = SysAllocString(OLESTR("stays"));
    for (VARTYPE vt : {VT_CLSID, VT_VOID}) {
        VARIANT source = variant(vt);
        EXPECT_EQ(DISP_E_BADVARTYPE, VariantCopy(&dest, &source)) << "vt " << vt;
    }
    EXPECT_EQ(VT_BSTR, dest.vt);
    EXPECT_EQ(Text(OLESTR("stays")), Text(dest.bstrVal));
    VariantClear(&dest);
}

TEST(Variant, ClearFreesOwnedValuesButNothingByReference) {
    LedgerScope ledger;
    VARIANT v = variant(VT_BSTR);
    v.bstrVal = SysAllocString(OLESTR("owned"));
    EXPECT_EQ(S_OK, VariantClear(&v));

    v = variant(VT_ARRAY | VT_BSTR);
    v.parray = SafeArrayCreateVector(VT_BSTR, 0, 2);
    LONG index = 1;
    BSTR element = SysAllocString(OLESTR("element"));
    ASSERT_EQ(S_OK, SafeArrayPutElement(v.parray, &index, element));
    SysFreeString(element);
    EXPECT_EQ(S_OK, VariantClear(&v));

    CountingUnknown object;
    v = variant(VT_UNKNOWN);
    v.punkVal = &object;
    object.AddRef();  // the reference the variant owns
    EXPECT_EQ(S_OK, VariantClear(&v));
    EXPECT_EQ(1u, object.refs.load());
    EXPECT_EQ(&object, v.punkVal);  // the pointer field is left as it was

    IUnknown* referenced = &object;
    v = variant(VT_BYREF | VT_UNKNOWN);
    v.ppunkVal = &referenced;
    EXPECT_EQ(S_OK, VariantClear(&v));
    EXPECT_EQ(1u, object.refs.load());

    BSTR kept = SysAllocString(OLESTR("kept"));
    v = variant(VT_BYREF | VT_BSTR);
    v.pbstrVal = &kept;
    EXPECT_EQ(S_OK, VariantClear(&v));
    EXPECT_EQ(Text(OLESTR("kept")), Text(kept));
    SysFreeString(kept);
}

TEST(Variant, CopyIsDeepAndClearsTheDestinationFirst) {
    LedgerScope ledger;
    const OLECHAR text[] = {'x', 0, 'y'};
    VARIANT source = variant(VT_BSTR);
    source.bstrVal = SysAllocStringLen(text, 3);
    VARIANT dest = variant(VT_BSTR);
    dest.bstrVal = SysAllocString(OLESTR("replaced"));  // must be freed by the copy
    ASSERT_EQ(S_OK, VariantCopy(&dest, &source));
    EXPECT_NE(source.bstrVal, dest.bstrVal);
    EXPECT_EQ(3u, SysStringLen(dest.bstrVal));
    EXPECT_EQ('y', dest.bstrVal[2]);

    CountingUnknown object;
    VARIANT unknown = variant(VT_UNKNOWN);
    unknown.punkVal = &object;
    ASSERT_EQ(S_OK, VariantCopy(&dest, &unknown));
    EXPECT_EQ(2u, object.refs.load());
    VariantClear(&dest);
    EXPECT_EQ(1u, object.refs.load());

    VARIANT array = variant(VT_ARRAY | VT_I4);
    array.parray = SafeArrayCreateVector(VT_I4, 0, 3);
    ASSERT_EQ(S_OK, VariantCopy(&dest, &array));
    EXPECT_NE(array.parray, dest.parray);
    VariantClear(&dest);
    VariantClear(&array);
    VariantClear(&source);
}
