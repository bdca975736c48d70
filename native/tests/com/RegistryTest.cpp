// The registry API over the class root: keys, values, enumeration, deletion.
#include "ComTestSupport.h"

#include <winreg.h>

#ifndef _WIN32
#include <substrate/registry.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#endif

namespace {

// A key of its own under the class root for each test, removed afterwards.
class ScratchKey {
public:
    explicit ScratchKey(const OLECHAR* name) : name_(name) {
        RegDeleteTreeW(HKEY_CLASSES_ROOT, name_.c_str());
        EXPECT_EQ(ERROR_SUCCESS, create(HKEY_CLASSES_ROOT, name, &key_));
    }
    ~ScratchKey() {
        RegCloseKey(key_);
        RegDeleteTreeW(HKEY_CLASSES_ROOT, name_.c_str());
    }
    HKEY get() const { return key_; }

    static LSTATUS create(HKEY parent, const OLECHAR* name, HKEY* key, DWORD* disposition = nullptr) {
        return RegCreateKeyExW(parent, name, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, key, disposition);
    }

private:
    Text name_;
    HKEY key_ = nullptr;
};

LSTATUS setString(HKEY key, const OLECHAR* name, const OLECHAR* value) {
    return RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(value),
                          static_cast<DWORD>((Text(value).size() + 1) * sizeof(OLECHAR)));
}

Text readString(HKEY key, const OLECHAR* name) {
    OLECHAR text[64];
    DWORD size = sizeof(text);
    EXPECT_EQ(ERROR_SUCCESS, RegQueryValueExW(key, name, nullptr, nullptr, reinterpret_cast<BYTE*>(text), &size));
    return text;
}

}  // namespace

TEST(Registry, ValuesRoundTripWithSizeQueries) {
    ScratchKey scratch(OLESTR("ComRuntimeTest.Values"));
    ASSERT_EQ(ERROR_SUCCESS, setString(scratch.get(), nullptr, OLESTR("default")));
    ASSERT_EQ(ERROR_SUCCESS, setString(scratch.get(), OLESTR("Named"), OLESTR("tab\tand\nline %41")));

    DWORD type = 0, size = 0;
    ASSERT_EQ(ERROR_SUCCESS, RegQueryValueExW(scratch.get(), OLESTR("named"), nullptr, &type, nullptr, &size));
    EXPECT_EQ(static_cast<DWORD>(REG_SZ), type);
    EXPECT_EQ(17 * sizeof(OLECHAR), size);
    OLECHAR small[4];
    DWORD smallSize = sizeof(small);
    EXPECT_EQ(ERROR_MORE_DATA, RegQueryValueExW(scratch.get(), OLESTR("Named"), nullptr, nullptr,
                                                reinterpret_cast<BYTE*>(small), &smallSize));
    EXPECT_EQ(size, smallSize);
    EXPECT_EQ(Text(OLESTR("tab\tand\nline %41")), readString(scratch.get(), OLESTR("Named")));
    EXPECT_EQ(Text(OLESTR("default")), readString(scratch.get(), nullptr));
    EXPECT_EQ(ERROR_FILE_NOT_FOUND,
              RegQueryValueExW(scratch.get(), OLESTR("Missing"), nullptr, nullptr, nullptr, nullptr));
}

TEST(Registry, KeysAreCaseInsensitiveEnumeratedAndDeletedAsTrees) {
    ScratchKey scratch(OLESTR("ComRuntimeTest.Keys"));
    const struct {
        const OLECHAR* name;
        DWORD disposition;
    } creations[] = {{OLESTR("Beta\\Deep"), REG_CREATED_NEW_KEY}, {OLESTR("BETA"), REG_OPENED_EXISTING_KEY},
                     {OLESTR("alpha"), REG_CREATED_NEW_KEY}};
    for (const auto& c : creations) {
        HKEY child = nullptr;
        DWORD disposition = 0;
        ASSERT_EQ(ERROR_SUCCESS, ScratchKey::create(scratch.get(), c.name, &child, &disposition));
        EXPECT_EQ(c.disposition, disposition);
        RegCloseKey(child);
    }

    OLECHAR name[16];
    DWORD length = 16;
    ASSERT_EQ(ERROR_SUCCESS, RegEnumKeyExW(scratch.get(), 0, name, &length, nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(Text(OLESTR("alpha")), Text(name));
    EXPECT_EQ(5u, length);
    length = 16;
    ASSERT_EQ(ERROR_SUCCESS, RegEnumKeyExW(scratch.get(), 1, name, &length, nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(Text(OLESTR("Beta")), Text(name));  // keeps the spelling it was created with
    length = 4;
    EXPECT_EQ(ERROR_MORE_DATA, RegEnumKeyExW(scratch.get(), 0, name, &length, nullptr, nullptr, nullptr, nullptr));
    length = 16;
    EXPECT_EQ(ERROR_NO_MORE_ITEMS, RegEnumKeyExW(scratch.get(), 2, name, &length, nullptr, nullptr, nullptr, nullptr));

    HKEY child = nullptr;
    EXPECT_EQ(ERROR_SUCCESS, RegOpenKeyExW(HKEY_CLASSES_ROOT, OLESTR("comruntimetest.keys\\beta\\DEEP"), 0, KEY_READ,
                                           &child));
    RegCloseKey(child);
    EXPECT_EQ(ERROR_SUCCESS, RegDeleteTreeW(scratch.get(), OLESTR("Beta")));
    child = reinterpret_cast<HKEY>(1);
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, RegOpenKeyExW(scratch.get(), OLESTR("Beta\\Deep"), 0, KEY_READ, &child));
    EXPECT_EQ(nullptr, child);
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, RegDeleteTreeW(scratch.get(), OLESTR("Beta")));
}

#ifndef _WIN32
TEST(Registry, ChangesMadeByAnotherProcessAreSeen) {
    ScratchKey scratch(OLESTR("ComRuntimeTest.Shared"));
    ASSERT_EQ(ERROR_SUCCESS, setString(scratch.get(), nullptr, OLESTR("before")));
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        HKEY key = nullptr;
        const bool ok = RegOpenKeyExW(HKEY_CLASSES_ROOT, OLESTR("ComRuntimeTest.Shared"), 0, KEY_WRITE, &key) ==
                            ERROR_SUCCESS &&
                        setString(key, nullptr, OLESTR("after, from another process")) == ERROR_SUCCESS;
        _exit(ok ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_EQ(Text(OLESTR("after, from another process")), readString(scratch.get(), nullptr));
    EXPECT_NE(nullptr, std::strstr(RegistryFilePath(), "registry"));
}
#endif
