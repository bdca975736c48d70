/* Machine-dependent JNI definitions for 64-bit Windows (mingw-w64 cross builds).
 *
 * The JDK's platform-independent jni.h includes "jni_md.h"; a cross build puts this folder ahead
 * of the host JDK's include folder so that the natives are declared as Windows expects: exported
 * from the DLL with dllexport (only marked functions are then exported) and 32-bit jint,
 * 64-bit jlong as on every Windows JDK. */
#ifndef _JAVASOFT_JNI_MD_H_
#define _JAVASOFT_JNI_MD_H_

#ifndef JNIEXPORT
#define JNIEXPORT __declspec(dllexport)
#endif
#define JNIIMPORT __declspec(dllimport)
#define JNICALL __stdcall

typedef int jint;
typedef long long jlong;
typedef signed char jbyte;

#endif /* !_JAVASOFT_JNI_MD_H_ */
