// Natives of com.velmora.opc.jni.client.da.OpcBrowseServerAddressSpace: the organisation of a server's
// name space, moves of its browse position, and the branches and leaves at a position or a path.
#include "com_velmora_opc_jni_client_da_OpcBrowseServerAddressSpace.h"

#include "Frame.h"
#include "OpcBrowseAddressSpace.h"
#include "OpcEnv.h"

using namespace opc;
namespace space = opc::browse::OpcBrowseAddressSpace;

namespace {

constexpr env::Frame kQueryOrganization{env::kUnexpectedNative, "OpcBrowseServerAddressSpace::queryOrganization",
                                        OLESTR("Enter OpcBrowseServerAddrssSpace.queryOrganization"),
                                        OLESTR("Exit OpcBrowseServerAddrssSpace.queryOrganization")};
constexpr env::Frame kGoRoot{env::kUnexpectedNative, "OpcBrowseServerAddressSpace::goRoot",
                             OLESTR("Enter OpcBrowseServerAddrssSpace.goRoot"),
                             OLESTR("Exit OpcBrowseServerAddrssSpace.goRoot")};
constexpr env::Frame kGoDown{env::kUnexpectedNative, "OpcBrowseServerAddressSpace::goDown",
                             OLESTR("Enter OpcBrowseServerAddrssSpace.goDown"),
                             OLESTR("Exit OpcBrowseServerAddrssSpace.goDown")};
constexpr env::Frame kListBranches{env::kUnexpectedNative, "OpcBrowseServerAddressSpace::listBranches",
                                   OLESTR("Enter OpcBrowseServerAddrssSpace.listBranches"),
                                   OLESTR("Exit OpcBrowseServerAddrssSpace.listBranches")};
constexpr env::Frame kListItems{env::kUnexpectedNative, "OpcBrowseServerAddressSpace::listItems",
                                OLESTR("Enter OpcBrowseServerAddrssSpace.listItems"),
                                OLESTR("Exit OpcBrowseServerAddrssSpace.listItems")};
constexpr env::Frame kGetGroups{env::kUnexpectedNative, "OpcBrowseServerAddressSpace::getGroups",
                                OLESTR("Enter OpcBrowseServerAddrssSpace.getGroups"),
                                OLESTR("Exit OpcBrowseServerAddrssSpace.getGroups")};
constexpr env::Frame kGetItems{env::kUnexpectedNative, "OpcBrowseServerAddressSpace::getItems",
                               OLESTR("Enter OpcBrowseServerAddrssSpace.getItems"),
                               OLESTR("Exit OpcBrowseServerAddrssSpace.getItems")};

// 2 for a flat name space; 1 for a hierarchical one, for any other answer and for a failed call.
jlong queryOrganization(jlong browser) {
    if (browser == 0) return OPC_NS_HIERARCHIAL;
    OPCNAMESPACETYPE organization = OPC_NS_HIERARCHIAL;
    OpcEnv::fromHandle<IOPCBrowseServerAddressSpace>(browser)->QueryOrganization(&organization);
    return organization == OPC_NS_FLAT ? OPC_NS_FLAT : OPC_NS_HIERARCHIAL;
}

void goRoot(JNIEnv* env, jlong browser) { space::goRoot(env, browser); }

void goDown(JNIEnv* env, jlong browser, jstring branch) { space::goDown(env, browser, branch); }

void listBranches(JNIEnv* env, jlong browser, jobject elements) { space::list(env, browser, elements, OPC_BRANCH); }

void listItems(JNIEnv* env, jlong browser, jobject elements) { space::list(env, browser, elements, OPC_LEAF); }

void getGroups(JNIEnv* env, jlong browser, jstring path, jobject elements) {
    space::get(env, browser, path, elements, OPC_BRANCH);
}

void getItems(JNIEnv* env, jlong browser, jstring path, jboolean flat, jobject elements) {
    space::get(env, browser, path, elements, flat ? OPC_FLAT : OPC_LEAF);
}

}  // namespace

extern "C" JNIEXPORT jlong JNICALL Java_com_velmora_opc_jni_client_da_OpcBrowseServerAddressSpace_queryOrganization(
    JNIEnv* env, jclass, jlong browser) {
    return env::framed<jlong>(env, kQueryOrganization, 0, [&] { return queryOrganization(browser); });
}

extern "C" JNIEXPORT void JNICALL Java_com_velmora_opc_jni_client_da_OpcBrowseServerAddressSpace_goRoot(
    JNIEnv* env, jclass, jlong browser) {
    env::framedVoid(env, kGoRoot, [&] { goRoot(env, browser); });
}

extern "C" JNIEXPORT void JNICALL Java_com_velmora_opc_jni_client_da_OpcBrowseServerAddressSpace_goDown(
    JNIEnv* env, jclass, jlong browser, jstring branch) {
    env::framedVoid(env, kGoDown, [&] { goDown(env, browser, branch); });
}

extern "C" JNIEXPORT void JNICALL Java_com_velmora_opc_jni_client_da_OpcBrowseServerAddressSpace_listBranches(
    JNIEnv* env, jclass, jlong browser, jobject elements) {
    env::framedVoid(env, kListBranches, [&] { listBranches(env, browser, elements); });
}

extern "C" JNIEXPORT void JNICALL Java_com_velmora_opc_jni_client_da_OpcBrowseServerAddressSpace_listItems(
    JNIEnv* env, jclass, jlong browser, jobject elements) {
    env::framedVoid(env, kListItems, [&] { listItems(env, browser, elements); });
}

extern "C" JNIEXPORT void JNICALL Java_com_velmora_opc_jni_client_da_OpcBrowseServerAddressSpace_getGroups(
    JNIEnv* env, jclass, jlong browser, jstring path, jobject elements) {
    env::framedVoid(env, kGetGroups, [&] { getGroups(env, browser, path, elements); });
}

extern "C" JNIEXPORT void JNICALL Java_com_velmora_opc_jni_client_da_OpcBrowseServerAddressSpace_getItems(
    JNIEnv* env, jclass, jlong browser, jstring path, jboolean flat, jobject elements) {
    env::framedVoid(env, kGetItems, [&] { getItems(env, browser, path, flat, elements); });
}
