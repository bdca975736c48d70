// SAFEARRAY: bounds and index order, element copy semantics, locks, destruction.
#include "ComTestSupport.h"

#include <cstring>

namespace {

struct ArrayOwner {
    explicit ArrayOwner(SAFEARRAY* p) : psa(p) {}
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
    ArrayOwner bstrs(SafeArrayCreate(VT_BSTR, 1, &bound));
    ASSERT_NE(nullptr, bstrs.psa);
    EXPECT_EQ(FADF_BSTR | FADF_HAVEVARTYPE, bstrs.psa->fFeatures);
    EXPECT_EQ(sizeof(BSTR), SafeArrayGetElemsize(bstrs.psa));
    VARTYPE vt = 0;
    EXPECT_EQ(S_OK, SafeArrayGetVartype(bstrs.psa, &vt));
    EXPECT_EQ(VT_BSTR, vt);
}

TEST(SafeArray, EmptyDimensionHasUpperBoundBelowLowerBound) {
    LedgerScope ledger;
    ArrayOwner zeroBased(SafeArrayCreateVector(VT_I4, 0, 0));
    ASSERT_NE(nullptr, zeroBased.psa);
    LONG upper = 99;
    EXPECT_EQ(S_OK, SafeArrayGetUBound(zeroBased.psa, 1, &upper));
    EXPECT_EQ(-1, upper);

    SAFEARRAYBOUND bound{0, 42};
    ArrayOwner offset(SafeArrayCreate(VT_BSTR, 1, &bound));
    ASSERT_NE(nullptr, offset.psa);
    EXPECT_EQ(S_OK, SafeArrayGetUBound(offset.psa, 1, &upper));
    EXPECT_EQ(41, upper);
    LONG index = 42;
    BSTR out = nullptr;
    EXPECT_EQ(DISP_E_BADINDEX, SafeArrayGetElement(offset.psa, &index, &out));
}

TEST(SafeArray, BoundsAreStoredReversedAndIndicesAreColumnMajor) {
    LedgerScope ledger;
    SAFEARRAYBOUND bounds[2] = {{42, 1}, {2, 23}};
    ArrayOwner a(SafeArrayCreate(VT_I4, 2, bounds));
    ASSERT_NE(nullptr, a.psa);
    EXPECT_EQ(2u, SafeArrayGetDim(a.psa));
    EXPECT_EQ(2u, a.psa->rgsabound[0].cElements);  // the raw field starts with the last dimension
    EXPECT_EQ(23, a.psa->rgsabound[0].lLbound);

    LONG lower = 0, upper = 0;
    EXPECT_EQ(S_OK, SafeArrayGetLBound(a.psa, 1, &lower));
    EXPECT_EQ(S_OK, SafeArrayGetUBound(a.psa, 1, &upper));
    EXPECT_EQ(1, lower);
    EXPECT_EQ(42, upper);
    EXPECT_EQ(S_OK, SafeArrayGetLBound(a.psa, 2, &lower));
    EXPECT_EQ(S_OK, SafeArrayGetUBound(a.psa, 2, &upper));
    EXPECT_EQ(23, lower);
    EXPECT_EQ(24, upper);
    EXPECT_EQ(DISP_E_BADINDEX, SafeArrayGetUBound(a.psa, 0, &upper));
    EXPECT_EQ(DISP_E_BADINDEX, SafeArrayGetUBound(a.psa, 3, &upper));

    LONG indices[2] = {3, 24};
    void* element = nullptr;
    ASSERT_EQ(S_OK, SafeArrayPtrOfIndex(a.psa, indices, &element));
    EXPECT_EQ(176, static_cast<char*>(element) - static_cast<char*>(a.psa->pvData));

    LONG value = 7;
    EXPECT_EQ(S_OK, SafeArrayPutElement(a.psa, indices, &value));
    EXPECT_EQ(7, *static_cast<LONG*>(element));
    LONG outside[2] = {43, 24};
    EXPECT_EQ(DISP_E_BADINDEX, SafeArrayPutElement(a.psa, outside, &value));
    LONG below[2] = {1, 22};
    EXPECT_EQ(DISP_E_BADINDEX, SafeArrayGetElement(a.psa, below, &value));
}

TEST(SafeArray, StringElementsAreCopiedInAndOut) {
    LedgerScope ledger;
    ArrayOwner a(SafeArrayCreateVector(VT_BSTR, 5, 2));
    ASSERT_NE(nullptr, a.psa);
    const OLECHAR text[] = {'a', 0, 'b'};
    BSTR mine = SysAllocStringLen(text, 3);
    LONG index = 5;
    ASSERT_EQ(S_OK, SafeArrayPutElement(a.psa, &index, mine));  // the BSTR itself, not its address
    BSTR stored = static_cast<BSTR*>(a.psa->pvData)[0];
    EXPECT_NE(mine, stored);
    EXPECT_EQ(3u, SysStringLen(stored));
    SysFreeString(mine);

    ASSERT_EQ(S_OK, SafeArrayPutElement(a.psa, &index, mine = SysAllocString(OLESTR("second"))));
    SysFreeString(mine);  // the first copy was freed by the array when replaced

    BSTR copy = nullptr;
    ASSERT_EQ(S_OK, SafeArrayGetElement(a.psa, &index, &copy));
    EXPECT_NE(static_cast<BSTR*>(a.psa->pvData)[0], copy);
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
    ArrayOwner a(SafeArrayCreateVector(VT_VARIANT, 0, 1));
    ASSERT_NE(nullptr, a.psa);
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

TEST(SafeArray, InterfaceElementsHoldTheirOwnReferences) {
    CountingUnknown first, second;
    {
        ArrayOwner a(SafeArrayCreateVector(VT_UNKNOWN, 0, 1));
        ASSERT_NE(nullptr, a.psa);
        LONG index = 0;
        ASSERT_EQ(S_OK, SafeArrayPutElement(a.psa, &index, static_cast<IUnknown*>(&first)));
        EXPECT_EQ(2u, first.refs.load());
        ASSERT_EQ(S_OK, SafeArrayPutElement(a.psa, &index, static_cast<IUnknown*>(&second)));
        EXPECT_EQ(1u, first.refs.load());
        IUnknown* out = nullptr;
        ASSERT_EQ(S_OK, SafeArrayGetElement(a.psa, &index, &out));
        EXPECT_EQ(&second, out);
        EXPECT_EQ(3u, second.refs.load());
        out->Release();
        VARTYPE vt = 0;
        EXPECT_EQ(S_OK, SafeArrayGetVartype(a.psa, &vt));
        EXPECT_EQ(VT_UNKNOWN, vt);
    }
    EXPECT_EQ(1u, second.refs.load());  // destruction released the element
}

TEST(SafeArray, LocksGuardDestructionAndMustBalance) {
    LedgerScope ledger;
    EXPECT_EQ(S_OK, SafeArrayDestroy(nullptr));
    SAFEARRAY* psa = SafeArrayCreateVector(VT_BSTR, 0, 1);
    ASSERT_NE(nullptr, psa);
    void* data = nullptr;
    ASSERT_EQ(S_OK, SafeArrayAccessData(psa, &data));
    EXPECT_EQ(psa->pvData, data);
    EXPECT_EQ(DISP_E_ARRAYISLOCKED, SafeArrayDestroy(psa));
    EXPECT_EQ(psa->pvData, data);  // nothing was freed
    EXPECT_EQ(S_OK, SafeArrayUnaccessData(psa));
    EXPECT_EQ(E_UNEXPECTED, SafeArrayUnlock(psa));
    EXPECT_EQ(S_OK, SafeArrayDestroy(psa));
}

TEST(SafeArray, CopyDuplicatesShapeAndElements) {
    LedgerScope ledger;
    SAFEARRAYBOUND bounds[2] = {{2, -1}, {3, 10}};
    ArrayOwner a(SafeArrayCreate(VT_BSTR, 2, bounds));
    ASSERT_NE(nullptr, a.psa);
    LONG indices[2] = {0, 12};
    BSTR s = SysAllocString(OLESTR("corner"));
    ASSERT_EQ(S_OK, SafeArrayPutElement(a.psa, indices, s));
    SysFreeString(s);

    SAFEARRAY* raw = nullptr;
    ASSERT_EQ(S_OK, SafeArrayCopy(a.psa, &raw));
    ArrayOwner copy(raw);
    LONG lower = 0, upper = 0;
    EXPECT_EQ(S_OK, SafeArrayGetLBound(copy.psa, 1, &lower));
    EXPECT_EQ(S_OK, SafeArrayGetUBound(copy.psa, 2, &upper));
    EXPECT_EQ(-1, lower);
    EXPECT_EQ(12, upper);
    BSTR out = nullptr;
    ASSERT_EQ(S_OK, SafeArrayGetElement(copy.psa, indices, &out));
    EXPECT_EQ(Text(OLESTR("corner")), Text(out));
    SysFreeString(out);
}
