// Native of com.velmora.opc.jni.client.common.OpcServerList2: the servers of one component category
// registered on a host, read through the host's server-list service.
#include "com_velmora_opc_jni_client_common_OpcServerList2.h"

#include <memory>

#include "ComPtr.h"
#include "Frame.h"
#include "JniRefs.h"
#include "OpcEnv.h"
#include "Owned.h"
#include "RemoteActivation.h"

using namespace opc;
using support::ComPtr;
using support::TaskMem;

namespace {

constexpr env::Frame kDiscoverServers{env::kUnexpectedNative, "OpcServerList2::discoverServers", nullptr, nullptr};

constexpr char kResultClass[] = "com/velmora/opc/client/BOpcDeviceDiscoveryResult";
constexpr char kResultConstructor[] =
    "(Ljava/lang/String;Ljava/lang/String;Ljava/lang/String;Ljava/lang/String;Ljava/lang/String;Ljava/lang/String;)V";

// One discovery: construction connects to the host's server list and opens the enumeration of the
// category's classes; discover() walks it twice (count, then fill) and builds the Java array.
class OpcServerList {
public:
    OpcServerList(JNIEnv* env, jstring host, jstring category);
    ~OpcServerList();
    OpcServerList(const OpcServerList&) = delete;
    OpcServerList& operator=(const OpcServerList&) = delete;

    jobjectArray discover(JNIEnv* env, jstring host, jstring category);

private:
    bool nextClassId();
    bool nextClassWithDetails(JNIEnv* env);
    void freeDetails() noexcept;
    jobject newResult(JNIEnv* env, jclass cls, jmethodID ctor, jstring host, jstring category);

    ComPtr<IOPCEnumGUID> enumerator_;
    std::unique_ptr<CLSID> currentClsid_;
    ComPtr<IOPCServerList2> serverList_;
    TaskMem<OLECHAR> userType_;
    TaskMem<OLECHAR> progId_;
    TaskMem<OLECHAR> versionIndependentProgId_;
    // A category text that is no GUID names no category: such a discovery finds no servers.
    bool categoryKnown_ = true;
};

OpcServerList::OpcServerList(JNIEnv* env, jstring host, jstring category) {
    if (host == nullptr || category == nullptr) {
        OpcEnv::logError(env, OLESTR("OpcServerList::Construction failed, hostid or category id is null"));
        return;
    }
    ComPtr<IClassFactory> factory;
    HRESULT hr = server::remoteClassFactory(env, CLSID_OpcServerList, host, factory);
    if (!OpcEnv::check(env, hr, OLESTR("CoGetClassObject"))) {
        OpcEnv::logError(env, OLESTR("OpcServerList2 Failed to get class factory for IOPCServerList2"));
        return;
    }
    hr = factory->CreateInstance(nullptr, IID_IOPCServerList2, serverList_.putVoid());
    factory.reset();
    if (!OpcEnv::check(env, hr, OLESTR("IClassFactory::CreateInstance"))) {
        serverList_.reset();
        OpcEnv::logError(env, OLESTR("OpcServerList2 Failed to instantiate IOPCServerList2"));
        return;
    }
    CATID implemented{};
    if (FAILED(OpcEnv::toCLSID(env, category, &implemented))) {
        categoryKnown_ = false;
        return;
    }
    hr = serverList_->EnumClassesOfCategories(1, &implemented, 0, nullptr, enumerator_.put());
    if (!OpcEnv::check(env, hr, OLESTR("IOPCServerList2::EnumClassesOfCategories"))) {
        OpcEnv::logError(env, OLESTR("OpcServerList2 Failed to create enumerator"));
        enumerator_.reset();
        return;
    }
    currentClsid_ = std::make_unique<CLSID>();
}

OpcServerList::~OpcServerList() {
    freeDetails();
    enumerator_.reset();
    serverList_.reset();
    currentClsid_.reset();
}

// A server may hand out one text as both ProgIDs: it is freed once.
void OpcServerList::freeDetails() noexcept {
    if (versionIndependentProgId_.get() == progId_.get()) (void)versionIndependentProgId_.release();
    progId_.reset();
    versionIndependentProgId_.reset();
    userType_.reset();
}

bool OpcServerList::nextClassId() {
    if (!enumerator_ || !currentClsid_) return false;
    ULONG fetched = 0;
    enumerator_->Next(1, currentClsid_.get(), &fetched);  // only the fetched count ends the walk
    return fetched != 0;
}

bool OpcServerList::nextClassWithDetails(JNIEnv* env) {
    freeDetails();
    if (!nextClassId()) return false;
    const HRESULT hr = serverList_->GetClassDetails(*currentClsid_, progId_.put(), userType_.put(),
                                                    versionIndependentProgId_.put());
    return OpcEnv::check(env, hr, OLESTR("IOPCServerList2::GetClassDetails"));
}

jstring javaStringOrNull(JNIEnv* env, const TaskMem<OLECHAR>& text) {
    return text ? OpcEnv::newJavaString(env, text.get()) : nullptr;
}

// The result object of the current class; null with a Java exception pending when one cannot be made.
jobject OpcServerList::newResult(JNIEnv* env, jclass cls, jmethodID ctor, jstring host, jstring category) {
    env::LocalRef<jstring> progId(env, javaStringOrNull(env, progId_));
    if (env->ExceptionCheck()) return nullptr;
    env::LocalRef<jstring> independent(env, javaStringOrNull(env, versionIndependentProgId_));
    if (env->ExceptionCheck()) return nullptr;
    env::LocalRef<jstring> userType(env, javaStringOrNull(env, userType_));
    if (env->ExceptionCheck()) return nullptr;
    env::LocalRef<jstring> clsid;
    {
        const TaskMem<OLECHAR> text = OpcEnv::fromIID(*currentClsid_);
        clsid = env::LocalRef<jstring>(env, javaStringOrNull(env, text));
    }
    if (env->ExceptionCheck()) return nullptr;
    return env->NewObject(cls, ctor, userType.get(), clsid.get(), progId.get(), independent.get(), host, category);
}

jobjectArray OpcServerList::discover(JNIEnv* env, jstring host, jstring category) {
    if (!serverList_) {
        OpcEnv::logError(env, OLESTR("OpcServerList::ServerList interface object is null"));
        return nullptr;
    }
    jsize count = 0;
    if (categoryKnown_) {
        while (nextClassId()) ++count;
        if (!enumerator_) {
            OpcEnv::logError(env, OLESTR("OpcServerList::Discovery enumerator object is null"));
            return nullptr;
        }
        if (enumerator_->Reset() != S_OK) {
            OpcEnv::logError(env, OLESTR("OpcServerList::ServerList enumerator reset failed"));
            return nullptr;
        }
    }
    env::LocalRef<jclass> cls(env, env->FindClass(kResultClass));
    if (!cls) {
        OpcEnv::logError(env, OLESTR("OpcServerList::Not able to find BOpcDeviceDiscoveryResult class"));
        return nullptr;
    }
    const jmethodID ctor = env->GetMethodID(cls.get(), "<init>", kResultConstructor);
    if (ctor == nullptr) {
        OpcEnv::logError(env, OLESTR("OpcServerList::Discovery Result object constructor failed"));
        return nullptr;
    }
    jobjectArray results = env->NewObjectArray(count, cls.get(), nullptr);
    if (results == nullptr) {
        OpcEnv::logError(env, OLESTR("OpcServerList::Discovery result array object creation failed"));
        return nullptr;
    }
    // A class registered between the two walks has no slot; one removed leaves its slot null.
    for (jsize index = 0; categoryKnown_ && index < count && nextClassWithDetails(env); ++index) {
        env::LocalRef<jobject> result(env, newResult(env, cls.get(), ctor, host, category));
        if (!result) break;  // the Java exception stays pending
        env->SetObjectArrayElement(results, index, result.get());
    }
    return results;
}

jobjectArray discoverServers(JNIEnv* env, jstring host, jstring category) {
    OpcServerList list(env, host, category);
    return list.discover(env, host, category);
}

}  // namespace

extern "C" JNIEXPORT jobjectArray JNICALL Java_com_velmora_opc_jni_client_common_OpcServerList2_discoverServers(
    JNIEnv* env, jclass, jstring host, jstring category) {
    return env::framed<jobjectArray>(env, kDiscoverServers, nullptr,
                                     [&] { return discoverServers(env, host, category); });
}
