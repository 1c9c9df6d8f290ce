// TV service: tuner, channel database, viewing state, scan and signals.
//
// Unless a call says otherwise, an int result above 0 is success, and 0 or less is failure; an
// out-parameter is left as it was on failure. Factories that take a profile are called with profile 1
// and option 0; other options are 0 too. All calls are made on the main loop or before main().
#pragma once

#include <cstdint>
#include <list>
#include <map>
#include <set>
#include <string>

enum EProfile : int {};
enum EAntennaMode : int {};  // -1: unknown
enum EServiceMode : int {};  // -1: unknown
enum ECategory : int {};     // -1: unknown
enum ESortMode : int {};     // -1: unknown
enum ESignalType : int {};   // 18: a channel scan has stopped

struct TSTvMode {
    TSTvMode(EAntennaMode antennaMode, EServiceMode serviceMode);
    EAntennaMode antennaMode;
    EServiceMode serviceMode;
};

// The channel-list category that is shown. Copyable.
class CCNavigationModeInfo {
public:
    CCNavigationModeInfo(ECategory category, std::uint64_t param, ESortMode sortMode);
    ECategory category;
    std::uint64_t param;
    ESortMode sortMode;
    std::list<std::string> genres;  // carried along by copies
};

struct TSSignalData {
    std::uint64_t value;
};

// Which fields a query shall bring back; starts empty. Field 12 is the service id.
class TCCriteriaHelper {
public:
    TCCriteriaHelper();
    ~TCCriteriaHelper();
    void Fetch(int field);  // adds a field
    bool IsFetched(int field) const;

private:
    std::set<int> m_fields;
};

// What a query brought back; starts without any field.
class TCServiceData {
public:
    TCServiceData();
    ~TCServiceData();
    bool GetField(int field, std::uint64_t& value) const;  // false: no field record, or no such field
    void SetField(int field, std::uint64_t value);         // adds the field, or changes its value

private:
    std::map<int, std::uint64_t> m_fields;
};

// The databases as archives. Made by TVServiceAPI::CreateUtil(), released by TVServiceAPI::Destroy().
class IUtil {
public:
    // Writes the channel database as a zip archive to `path`.
    virtual int GetServiceDb(const std::string& path) = 0;

    // Replaces the channel database by that of the zip archive at `path`, whole or not at all. At
    // least 1 is success. On failure `status` says why, in the TV service's own codes; a call that did
    // not get as far as looking at the archive leaves it as it was.
    virtual int ReplaceServiceDb(const std::string& path, int* status) = 0;

    virtual int Reserved1() = 0;
    virtual int Reserved2() = 0;

    // Writes the iss database as a zip archive to `path`. Non-zero is success.
    virtual int GetIssDbArchive(const std::string& path) = 0;

    // Takes the iss database back from the archive at `path`, whole or not at all.
    virtual int RestoreIssDbArchive(const std::string& path) = 0;

protected:
    ~IUtil() = default;
};

class ITunerControl {
public:
    // Adds the connection status codes of the antenna inputs to `statuses`.
    virtual int GetAntennaConnectionStatus(std::set<int>& statuses) = 0;

protected:
    ~ITunerControl() = default;
};

class IServiceNavigation {
public:
    virtual int GetTvMode(TSTvMode& mode) = 0;

    // Fails for a mode that the TV does not have.
    virtual int SetTvMode(TSTvMode mode, int option) = 0;

    // Adds the fields that `criteria` names to `data`, as far as the current service of `mode` has them. Fails
    // where there is no current service.
    virtual int GetCurrentServiceInfo(TSTvMode mode, const TCCriteriaHelper& criteria, TCServiceData& data) = 0;

    // Fails for a service that the channel database does not have.
    virtual int SetCurrentServiceInfo(TSTvMode mode, const std::uint64_t& serviceId) = 0;

    // Forgets the current service: the TV picks one.
    virtual int ResetCurrentServiceInfo() = 0;

protected:
    ~IServiceNavigation() = default;
};

class ISourceControl {
public:
    // Input sources: 0 is the TV's own tuner.
    virtual int GetCurrentSourceInfo(std::int32_t& source) = 0;

    // Selects an input source, the tuner with a service to show. An empty option asks for nothing special.
    virtual int SetSource(std::int32_t source, std::uint64_t serviceId, std::string option) = 0;

protected:
    ~ISourceControl() = default;
};

class IScanData {
public:
    // At least 1: answered.
    virtual int IsScanActivated(bool& activated, int option) = 0;

protected:
    ~IScanData() = default;
};

class IScanControl {
public:
    // Asks the running scan to stop; signal 18 says when it has. Fails where none is running.
    virtual int StopAutoScan(int option) = 0;

protected:
    ~IScanControl() = default;
};

// Called on the main loop; the TV service does not use the result.
typedef int (*SignalCallback)(ESignalType, EProfile, unsigned short, TSSignalData, void* appData);

class ISignalSubscriber {
public:
    // Lets `callback` be called with `appData`, as given, at each signal of `type`. It must hold until the subscription
    // is undone by Unsubscribe() with the same arguments or by TVServiceAPI::DestroySignalSubscriber().
    virtual int Subscribe(ESignalType type, void* appData, int profile, int option, SignalCallback callback) = 0;
    virtual int Unsubscribe(ESignalType type, int profile, int option, SignalCallback callback) = 0;

protected:
    ~ISignalSubscriber() = default;
};

class TVServiceAPI {
public:
    // 0 is success; `util` may be null even then. Released with Destroy().
    static int CreateUtil(IUtil** util);

    // 0 is success, but `tuner` alone tells: it is left as it was where there is none. The control is the
    // platform's own; nobody releases it.
    static int CreateTunerControl(EProfile profile, int option, ITunerControl** tuner);

    // 0 is success, but `subscriber` alone tells: it is left as it was where there is none. One subscriber a
    // callback, released with DestroySignalSubscriber().
    static int CreateSignalSubscriber(SignalCallback callback, ISignalSubscriber** subscriber);
    static int DestroySignalSubscriber(SignalCallback callback);

    // `util` may be null.
    static void Destroy(IUtil* util);
};

// Makes the controls and owns them: they live as long as the wrapper.
class CTVSApiWrapper {
public:
    CTVSApiWrapper();
    ~CTVSApiWrapper();
    CTVSApiWrapper(const CTVSApiWrapper&) = delete;
    CTVSApiWrapper& operator=(const CTVSApiWrapper&) = delete;

    // Each gives null where there is no such control.
    IServiceNavigation* CreateServiceNavigation(EProfile profile, int option);
    ISourceControl* CreateSourceControl(EProfile profile, int option);
    IScanData* CreateScanData(EProfile profile, int option);
    IScanControl* CreateScanControl(EProfile profile, int option);

private:
    struct Impl;
    Impl* m_impl;
};

class CCCategoryUtil {
public:
    // The platform's own object, which nobody releases; null where there is none.
    static CCCategoryUtil* GetInstance();

    // The category shown in `mode`; true is success. A call that fails may have changed `info`.
    virtual bool GetCurrentCategory(TSTvMode mode, CCNavigationModeInfo& info) = 0;
    virtual bool SetCurrentCategory(TSTvMode mode, CCNavigationModeInfo info) = 0;

protected:
    ~CCCategoryUtil() = default;
};
