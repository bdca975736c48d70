#include "OpcBrowseAddressSpace.h"

#include "ComPtr.h"
#include "JniRefs.h"
#include "OpcEnv.h"
#include "Owned.h"
#include "Receivers.h"

namespace opc::browse::OpcBrowseAddressSpace {

namespace {

using support::ComPtr;
using support::TaskMem;

const OLECHAR kEmpty[] = OLESTR("");
// More steps up than any real name space is deep: a server that never refuses the step up stops here.
constexpr int kMaxClimb = 1000;

IOPCBrowseServerAddressSpace* spaceOf(jlong browser) noexcept {
    return OpcEnv::fromHandle<IOPCBrowseServerAddressSpace>(browser);
}

// The messages of the argument checks that end get and list.
struct CheckTexts {
    const OLECHAR* nullElements;
    const OLECHAR* noClass;
    const OLECHAR* noAdd;
    const OLECHAR* nullArgument;
};

constexpr CheckTexts kGetTexts{OLESTR("OpcBrowseAddressSpace::get- incoming elements array is null"),
                               OLESTR("OpcBrowseAddressSpace::get- elements class object is null"),
                               OLESTR("OpcBrowseAddressSpace::get- ADD method is null"),
                               OLESTR("OpcBrowseAddressSpace::get- Id/browser is null")};
constexpr CheckTexts kListTexts{OLESTR("OpcBrowseAddressSpace::list- incoming elements array is null"),
                                OLESTR("OpcBrowseAddressSpace::list- elements class object is null"),
                                OLESTR("OpcBrowseAddressSpace::list- ADD method is null"),
                                OLESTR("OpcBrowseAddressSpace::list- browser is null")};

// The add(String, String) method of the receiver's own class, or null once the reason is logged
// (a missing method leaves the look-up's NoSuchMethodError pending).
jmethodID addMethod(JNIEnv* env, jobject elements, const CheckTexts& texts) {
    if (elements == nullptr) {
        OpcEnv::logTrace(env, texts.nullElements);
        return nullptr;
    }
    return env::receiverMethod(env, elements, "add", "(Ljava/lang/String;Ljava/lang/String;)V", OpcEnv::logTrace,
                               texts.noClass, texts.noAdd);
}

HRESULT browseItemIds(IOPCBrowseServerAddressSpace* space, OPCBROWSETYPE browseType, ComPtr<IEnumString>& names) {
    return space->BrowseOPCItemIDs(browseType, kEmpty, VT_EMPTY, 0, names.put());
}

// One add(name, itemId) per string of the enumerator, fetched one at a time, in its order; itemId is
// null when GetItemID fails or gives no text. With checkNext each Next result passes the check
// first. An exception thrown by add is kept aside until the enumeration ends.
void deliver(JNIEnv* env, IOPCBrowseServerAddressSpace* space, IEnumString* names, jobject elements, jmethodID add,
             bool checkNext) {
    env::DeferredException deferred(env);
    for (;;) {
        TaskMem<OLECHAR> name;
        ULONG fetched = 0;
        const HRESULT next = names->Next(1, name.put(), &fetched);
        if (fetched != 1) break;
        if (checkNext && !OpcEnv::check(env, next, OLESTR("IEnumString::Next"))) break;
        TaskMem<OLECHAR> itemId;
        const HRESULT found = space->GetItemID(name.get(), itemId.put());
        const bool hasId = SUCCEEDED(found) && itemId && itemId.get()[0] != 0;
        const env::LocalRef<jstring> javaName(env, name ? OpcEnv::newJavaString(env, name.get()) : nullptr);
        const env::LocalRef<jstring> javaId(env, hasId ? OpcEnv::newJavaString(env, itemId.get()) : nullptr);
        if (env->ExceptionCheck()) break;  // a string could not be made
        env->CallVoidMethod(elements, add, javaName.get(), javaId.get());
        deferred.collect();
    }
}

}  // namespace

void goRoot(JNIEnv* env, jlong browser) {
    if (browser == 0) {
        OpcEnv::logTrace(env, OLESTR("OpcBrowseAddressSpace::goRoot- argument is null"));
        return;
    }
    IOPCBrowseServerAddressSpace* space = spaceOf(browser);
    if (SUCCEEDED(space->ChangeBrowsePosition(OPC_BROWSE_TO, kEmpty))) return;
    // A server that cannot jump to the root is climbed until the step up fails there.
    for (int climbed = 0;;) {
        const HRESULT hr = space->ChangeBrowsePosition(OPC_BROWSE_UP, kEmpty);
        if (++climbed > kMaxClimb || FAILED(hr)) break;
    }
}

void goDown(JNIEnv* env, jlong browser, jstring branch) {
    if (browser == 0) {
        OpcEnv::logTrace(env, OLESTR("OpcBrowseAddressSpace::goDown- Argument is null"));
        return;
    }
    if (branch == nullptr) {
        OpcEnv::logTrace(env, OLESTR("OpcBrowseAddressSpace::goDown- Id/browser is null"));
        return;
    }
    HRESULT hr = S_OK;
    {
        const WideString name = OpcEnv::newWideString(env, branch);
        hr = spaceOf(browser)->ChangeBrowsePosition(OPC_BROWSE_DOWN, name.get());
    }
    if (!OpcEnv::check(env, hr, OLESTR("IOPCBrowseServerAddressSpace::ChangeBrowsePosition")))
        OpcEnv::logError(env, OLESTR("BrowseServerAddressSpace::ChangeBrowsePosition->goDown failed"));
}

void get(JNIEnv* env, jlong browser, jstring path, jobject elements, OPCBROWSETYPE browseType) {
    const jmethodID add = addMethod(env, elements, kGetTexts);
    if (add == nullptr) return;
    if (path == nullptr || browser == 0) {
        OpcEnv::logTrace(env, kGetTexts.nullArgument);
        return;
    }
    IOPCBrowseServerAddressSpace* space = spaceOf(browser);
    HRESULT hr = S_OK;
    {
        const WideString target = OpcEnv::newWideString(env, path);
        hr = space->ChangeBrowsePosition(OPC_BROWSE_TO, target.get());
    }
    if (FAILED(hr)) {
        OpcEnv::logTrace(env, OLESTR("Native:ChangeBrowsePosition Failed, Calling goRoot \n "));
        goRoot(env, browser);
    }
    ComPtr<IEnumString> names;
    hr = browseItemIds(space, browseType, names);
    if (!OpcEnv::check(env, hr, OLESTR("IOPCBrowseServerAddressSpace::BrowseOPCItemIDs"))) {
        OpcEnv::logTrace(env, OLESTR("Native:BrowseOPCItemIDs failed\n "));
        return;
    }
    if (names) deliver(env, space, names.get(), elements, add, false);
}

void list(JNIEnv* env, jlong browser, jobject elements, OPCBROWSETYPE browseType) {
    const jmethodID add = addMethod(env, elements, kListTexts);
    if (add == nullptr) return;
    if (browser == 0) {
        OpcEnv::logTrace(env, kListTexts.nullArgument);
        return;
    }
    IOPCBrowseServerAddressSpace* space = spaceOf(browser);
    ComPtr<IEnumString> names;
    const HRESULT hr = browseItemIds(space, browseType, names);
    if (!OpcEnv::check(env, hr, OLESTR("IOPCBrowseServerAddressSpace::BrowseOPCItemIDs"))) return;
    if (names) deliver(env, space, names.get(), elements, add, true);
}

}  // namespace opc::browse::OpcBrowseAddressSpace
