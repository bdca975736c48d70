// Time: FILETIME counts 100-nanosecond intervals since 1601-01-01 UTC.
#include "internal.h"

#include <thread>
#include <time.h>
#include <unistd.h>
#include <sys/syscall.h>

namespace {

constexpr int64_t kTicksPerSecond = 10000000;
constexpr int64_t kEpochDifferenceSeconds = 11644473600;  // 1601-01-01 to 1970-01-01
constexpr int64_t kTicksPerDay = 86400 * kTicksPerSecond;

// Days since 1970-01-01 of a civil date (proleptic Gregorian).
int64_t daysFromCivil(int64_t y, unsigned m, unsigned d) {
    y -= m <= 2;
    const int64_t era = (y >= 0 ? y : y - 399) / 400;
    const unsigned yoe = static_cast<unsigned>(y - era * 400);
    const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + static_cast<int64_t>(doe) - 719468;
}

void civilFromDays(int64_t z, int64_t* y, unsigned* m, unsigned* d) {
    z += 719468;
    const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    const unsigned doe = static_cast<unsigned>(z - era * 146097);
    const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const unsigned mp = (5 * doy + 2) / 153;
    *d = doy - (153 * mp + 2) / 5 + 1;
    *m = mp < 10 ? mp + 3 : mp - 9;
    *y = static_cast<int64_t>(yoe) + era * 400 + (*m <= 2);
}

}  // namespace

void GetSystemTimeAsFileTime(LPFILETIME ft) {
    timespec ts{};
    clock_gettime(CLOCK_REALTIME, &ts);
    const uint64_t ticks = static_cast<uint64_t>(ts.tv_sec + kEpochDifferenceSeconds) * kTicksPerSecond +
                           static_cast<uint64_t>(ts.tv_nsec / 100);
    ft->dwLowDateTime = static_cast<DWORD>(ticks);
    ft->dwHighDateTime = static_cast<DWORD>(ticks >> 32);
}

HRESULT CoFileTimeNow(FILETIME* lpFileTime) {
    if (lpFileTime == nullptr) return E_INVALIDARG;
    GetSystemTimeAsFileTime(lpFileTime);
    return S_OK;
}

BOOL FileTimeToSystemTime(const FILETIME* ft, LPSYSTEMTIME st) {
    if (ft == nullptr || st == nullptr) return FALSE;
    const uint64_t ticks = (uint64_t(ft->dwHighDateTime) << 32) | ft->dwLowDateTime;
    if (ticks > 0x7FFFFFFFFFFFFFFFull) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const int64_t days = static_cast<int64_t>(ticks / kTicksPerDay);
    const uint64_t rest = ticks % kTicksPerDay;
    int64_t y = 0;
    unsigned m = 0, d = 0;
    const int64_t unixDays = days - kEpochDifferenceSeconds / 86400;
    civilFromDays(unixDays, &y, &m, &d);
    st->wYear = static_cast<WORD>(y);
    st->wMonth = static_cast<WORD>(m);
    st->wDay = static_cast<WORD>(d);
    st->wDayOfWeek = static_cast<WORD>((days + 1) % 7);  // 1601-01-01 was a Monday
    st->wHour = static_cast<WORD>(rest / (3600 * kTicksPerSecond));
    st->wMinute = static_cast<WORD>(rest / (60 * kTicksPerSecond) % 60);
    st->wSecond = static_cast<WORD>(rest / kTicksPerSecond % 60);
    st->wMilliseconds = static_cast<WORD>(rest / 10000 % 1000);
    return TRUE;
}

BOOL SystemTimeToFileTime(const SYSTEMTIME* st, LPFILETIME ft) {
    if (st == nullptr || ft == nullptr || st->wMonth < 1 || st->wMonth > 12 || st->wDay < 1 || st->wDay > 31 ||
        st->wHour > 23 || st->wMinute > 59 || st->wSecond > 59 || st->wMilliseconds > 999 || st->wYear < 1601 ||
        st->wYear > 30827) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const int64_t days = daysFromCivil(st->wYear, st->wMonth, st->wDay) + kEpochDifferenceSeconds / 86400;
    const uint64_t ticks = static_cast<uint64_t>(days) * kTicksPerDay +
                           (uint64_t(st->wHour) * 3600 + uint64_t(st->wMinute) * 60 + st->wSecond) * kTicksPerSecond +
                           uint64_t(st->wMilliseconds) * 10000;
    ft->dwLowDateTime = static_cast<DWORD>(ticks);
    ft->dwHighDateTime = static_cast<DWORD>(ticks >> 32);
    return TRUE;
}

void GetSystemTime(LPSYSTEMTIME st) {
    FILETIME ft;
    GetSystemTimeAsFileTime(&ft);
    FileTimeToSystemTime(&ft, st);
}

ULONGLONG GetTickCount64(void) {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<ULONGLONG>(ts.tv_sec) * 1000 + static_cast<ULONGLONG>(ts.tv_nsec / 1000000);
}

DWORD GetTickCount(void) { return static_cast<DWORD>(GetTickCount64()); }

void Sleep(DWORD dwMilliseconds) { std::this_thread::sleep_for(std::chrono::milliseconds(dwMilliseconds)); }

DWORD GetCurrentThreadId(void) { return static_cast<DWORD>(syscall(SYS_gettid)); }
DWORD GetCurrentProcessId(void) { return static_cast<DWORD>(getpid()); }
