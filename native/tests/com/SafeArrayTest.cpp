// SAFEARRAY: bounds and indices, element copy semantics, locks, destruction.
#include "ComTestSupport.h"

namespace {

struct ArrayOwner {
    ArrayOwner(VARTYPE vt, ULONG count, LONG lower = 0) {
        SAFEARRAYBOUND bound{count, lower};
        psa = SafeArrayCreate(vt, 1, &bound);
        EXPECT_NE(nullptr, psa);
    }
    ~ArrayOwner() { EXPECT_EQ(S_OK, SafeArrayDestroy(psa)); }
    SAFEARRAY* psa;
};

}  // namespace

TEST(SafeArray, CreateRejectsTypesWithoutElementsAndBadShapes) {
    LedgerScope ledger;
    SAFEARRAYBOUND bound{4, 0};
    const VARTYPE unsupported[] = {VT_EMPTY, VT_NULL, 15, VT_VOID, VT_HRESULT, VT_PTR, VT_LPSTR, VT_LPWSTR,
                                   VT_FILETIME, VT_CLSID, VT_RECORD, 0xFFFF};
    for (VARTYPE vt : unsupported)
        EXPECT_EQ(nullptr, SafeArrayCreate(vt, 1, &bound)) << "vt " << vt;
    EXPECT_EQ(nullptr, SafeArrayCreate(VT_I4, 0, &bound));
    EXPECT_EQ(nullptr, SafeArrayCreate(VT_I4, 1, nullptr));
    ArrayOwner bstrs(VT_BSTR, 4);
    EXPECT_EQ(FADF_BSTR | FADF_HAVEVARTYPE, bstrs.psa->fFeatures);
}

TEST(SafeArray, BoundsAndIndicesAreCheckedAndAnEmptyDimensionEndsBelowItsStart) {
    LedgerScope ledger;
    for (LONG lower : {0, 42}) {
        ArrayOwner empty(VT_BSTR, 0, lower);
        LONG upper = 99;
        EXPECT_EQ(S_OK, SafeArrayGetUBound(empty.psa, 1, &upper));
        EXPECT_EQ(lower - 1, upper);
        BSTR out = nullptr;
        EXPECT_EQ(DISP_E_BADINDEX, SafeArrayGetElement(empty.psa, &lower, &out));
    }
    ArrayOwner a(VT_I4, 2, -1);
    LONG lower = 0, upper = 0, value = 7;
    EXPECT_EQ(S_OK, SafeArrayGetLBound(a.psa, 1, &lower));
    EXPECT_EQ(S_OK, SafeArrayGetUBound(a.psa, 1, &upper));
    EXPECT_EQ(-1, lower);
    EXPECT_EQ(0, upper);
    EXPECT_EQ(1u, SafeArrayGetDim(a.psa));
    EXPECT_EQ(DISP_E_BADINDEX, SafeArrayGetUBound(a.psa, 0, &upper));
    EXPECT_EQ(DISP_E_BADINDEX, SafeArrayGetLBound(a.psa, 2, &lower));
    EXPECT_EQ(S_OK, SafeArrayPutElement(a.psa, &upper, &value));
    EXPECT_EQ(S_OK, SafeArrayGetElement(a.psa, &upper, &value));
    EXPECT_EQ(7, value);
    for (LONG outside : {-2, 1}) {
        EXPECT_EQ(DISP_E_BADINDEX, SafeArrayPutElement(a.psa, &outside, &value));
        EXPECT_EQ(DISP_E_BADINDEX, SafeArrayGetElement(a.psa, &outside, &value));
    }
}

TEST(SafeArray, StringElementsAreCopiedInAndOut) {
    LedgerScope ledger;
    ArrayOwner a(VT_BSTR, 2, 5);
    const OLECHAR text[] = {'a', 0, 'b'};
    BSTR mine = SysAllocStringLen(text, 3);
    LONG index = 5;
    ASSERT_EQ(S_OK, SafeArrayPutElement(a.psa, &index, mine));  // the BSTR itself, not its address
    BSTR copy = nullptr;
    ASSERT_EQ(S_OK, SafeArrayGetElement(a.psa, &index, &copy));
    EXPECT_NE(mine, copy);
    EXPECT_EQ(3u, SysStringLen(copy));
    SysFreeString(copy);
    SysFreeString(mine);

    ASSERT_EQ(S_OK, SafeArrayPutElement(a.psa, &index, mine = SysAllocString(OLESTR("second"))));
    SysFreeString(mine);  // the first copy was freed by the array when replaced
    ASSERT_EQ(S_OK, SafeArrayGetElement(a.psa, &index, &copy));
    EXPECT_EQ(Text(OLESTR("second")), Text(copy));
    SysFreeString(copy);

    index = 6;
    ASSERT_EQ(S_OK, SafeArrayGetElement(a.psa, &index, &copy));
    EXPECT_EQ(nullptr, copy);  // a slot never written is a null BSTR
    ASSERT_EQ(S_OK, SafeArrayPutElement(a.psa, &index, nullptr));
    ASSERT_EQ(S_OK, SafeArrayGetElement(a.psa, &index, &copy));
    ASSERT_NE(nullptr, copy);  // a null BSTR is stored as an empty one
    EXPECT_EQ(0u, SysStringLen(copy));
    SysFreeString(copy);
}

TEST(SafeArray, VariantElementsAreDeepCopiesAndTheDestinationIsNotCleared) {
    LedgerScope ledger;
    ArrayOwner a(VT_VARIANT, 1);
    VARIANT in;
    VariantInit(&in);
    in.vt = VT_BSTR;
    in.bstrVal = SysAllocString(OLESTR("value"));
    LONG index = 0;
    ASSERT_EQ(S_OK, SafeArrayPutElement(a.psa, &index, &in));
    VariantClear(&in);

    VARIANT out;
    out.vt = VT_BSTR;
    out.bstrVal = reinterpret_cast<BSTR>(static_cast<uintptr_t>(0x10));  // garbage: must be ignored
    ASSERT_EQ(S_OK, SafeArrayGetElement(a.psa, &index, &out));
    EXPECT_EQ(VT_BSTR, out.vt);
    EXPECT_EQ(Text(OLESTR("value")), Text(out.bstrVal));
    VariantClear(&out);
}

TEST(SafeArray, LockedArraysAreNotDestroyedAndLocksMustBalance) {
    LedgerScope ledger;
    EXPECT_EQ(S_OK, SafeArrayDestroy(nullptr));
    ArrayOwner a(VT_BSTR, 1);
    ASSERT_EQ(S_OK, SafeArrayLock(a.psa));
    EXPECT_EQ(DISP_E_ARRAYISLOCKED, SafeArrayDestroy(a.psa));
    EXPECT_EQ(S_OK, SafeArrayUnlock(a.psa));
    EXPECT_EQ(E_UNEXPECTED, SafeArrayUnlock(a.psa));
}
