// Natives of com.velmora.opc.testsupport.TestSupport: what the Java tests need to look inside the
// substrate (allocation ledger) and to drive ComObjectClient without a server.
#include <jni.h>

#include <objbase.h>
#include <substrate/ledger.h>

#include "ComObject.h"

#include <atomic>
#include <string>
#include <vector>

namespace {

std::atomic<long> liveObjects{0};

// An object answering QueryInterface for IUnknown and for each IID it was made with. Only its
// IUnknown methods are ever called, so one vtable serves every interface it claims.
class ProbeObject : public opc::support::ComObject<ProbeObject, IUnknown> {
public:
    explicit ProbeObject(std::vector<IID> iids) : iids_(std::move(iids)) { ++liveObjects; }

    void* interfaceFor(REFIID iid) {
        for (const IID& own : iids_) {
            if (IsEqualIID(own, iid)) return static_cast<IUnknown*>(this);
        }
        return nullptr;
    }

protected:
    ~ProbeObject() override { --liveObjects; }

private:
    std::vector<IID> iids_;
};

std::u16string toText(JNIEnv* env, jstring string) {
    const jsize length = env->GetStringLength(string);
    std::u16string text(static_cast<size_t>(length), u'\0');
    env->GetStringRegion(string, 0, length, reinterpret_cast<jchar*>(text.data()));
    return text;
}

void throwIllegalArgument(JNIEnv* env, const std::string& message) {
    jclass cls = env->FindClass("java/lang/IllegalArgumentException");
    if (cls != nullptr) env->ThrowNew(cls, message.c_str());
}

IUnknown* fromHandle(jlong handle) { return reinterpret_cast<IUnknown*>(static_cast<intptr_t>(handle)); }

}  // namespace

extern "C" {

JNIEXPORT jlong JNICALL Java_com_velmora_opc_testsupport_TestSupport_ledgerLiveCount(JNIEnv*, jclass, jint kind) {
    return static_cast<jlong>(LedgerLiveCount(kind));
}

JNIEXPORT jlong JNICALL Java_com_velmora_opc_testsupport_TestSupport_createObject(JNIEnv* env, jclass,
                                                                                jobjectArray iidTexts) {
    std::vector<IID> iids;
    const jsize count = iidTexts == nullptr ? 0 : env->GetArrayLength(iidTexts);
    for (jsize i = 0; i < count; ++i) {
        auto text = static_cast<jstring>(env->GetObjectArrayElement(iidTexts, i));
        if (text == nullptr) {
            throwIllegalArgument(env, "null IID text");
            return 0;
        }
        const std::u16string wide = toText(env, text);
        env->DeleteLocalRef(text);
        IID iid;
        if (FAILED(IIDFromString(wide.c_str(), &iid))) {
            throwIllegalArgument(env, "not an IID: element " + std::to_string(i));
            return 0;
        }
        iids.push_back(iid);
    }
    IUnknown* object = new ProbeObject(std::move(iids));
    return static_cast<jlong>(reinterpret_cast<intptr_t>(object));
}

JNIEXPORT jint JNICALL Java_com_velmora_opc_testsupport_TestSupport_refCount(JNIEnv*, jclass, jlong handle) {
    if (handle == 0) return 0;
    IUnknown* object = fromHandle(handle);
    object->AddRef();
    return static_cast<jint>(object->Release());
}

JNIEXPORT jint JNICALL Java_com_velmora_opc_testsupport_TestSupport_releaseObject(JNIEnv*, jclass, jlong handle) {
    if (handle == 0) return 0;
    return static_cast<jint>(fromHandle(handle)->Release());
}

JNIEXPORT jlong JNICALL Java_com_velmora_opc_testsupport_TestSupport_liveObjects(JNIEnv*, jclass) {
    return liveObjects.load();
}

}  // extern "C"
