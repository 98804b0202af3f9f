#include "foundation/logger.h"
#include "public/vexelsdk/app_launch_table.h"
#include "public/vexelsdk/open_param.h"
#include "public/vexelsdk/vexelsdk_process_util.h"
#include "vexelsdk/engine/vexel_sdk_thread.h"

namespace {

constexpr wchar_t kLauncher[] = L"webvexlaunch.exe";
constexpr wchar_t kEditor[] = L"vxpixeleditor.exe";

} // namespace

bool VexelSDKThread::CreateHelper(std::uint32_t pid, const std::wstring& name) {
  if (const std::shared_ptr<VexelSDKHelper> earlier = GetHelperByPid(pid); earlier != nullptr) {
    earlier->StopServer(); // the pid came back: its name is the new process's now
  }
  auto helper = std::make_shared<VexelSDKHelper>();
  if (!helper->StartServer(pid)) {
    return false;
  }
  {
    const std::lock_guard lock(m_helperLock);
    std::shared_ptr<VexelSDKHelper>& entry = m_helpers[pid];
    if (entry != nullptr) {
      // An earlier link of the same pid is let go and never destroyed. Deliberate, one link for each reused pid.
      new std::shared_ptr<VexelSDKHelper>(std::move(entry));
    }
    entry = std::move(helper);
  }
  AppLaunchTable::Instance().WriteSavedPid(name, pid);
  if (pid != 0) {
    const std::lock_guard lock(m_stateLock);
    m_pidToName[pid] = name;
  }
  return true;
}

/// The id leaves its process before the process is told, so that the crash watch takes its end for no crash.
void VexelSDKThread::CloseReplacedProcess(std::int32_t id, std::uint32_t oldPid) {
  const std::shared_ptr<VexelSDKHelper> helper = GetHelperByPid(oldPid);
  if (helper == nullptr) {
    return;
  }
  BindIdToPid(id, 0);
  SDK_OperatorData close;
  close.m_op = SDK_CLOSE;
  close.m_status = false; // ends the polling of the link, unsaved changes or not
  close.m_pid = oldPid;
  bool sent = false;
  helper->WriteOperator(close, &sent);
  if (!sent) {
    SetExited(oldPid);
    AddToKillList(oldPid);
  }
}

void VexelSDKThread::HandleOpenProcess(SDK_OperatorData& record) {
  const std::uint32_t oldPid = GetPidById(record.m_id);
  if (oldPid != 0) {
    CloseReplacedProcess(record.m_id, oldPid);
  }

  const std::int32_t appType = DecodeOpenParam(record.m_param);
  const AppLaunchInfo info = AppLaunchTable::Instance().GetLaunchInfoByType(appType);
  SDKLOG(LOG_INFO) << "nAppType=" << appType << ", pName=" << info.m_name.c_str();

  record.m_pid = GetPreloadPid(info.m_name);
  if (record.m_pid == oldPid) { // both 0 at a first open with an empty slot
    record.m_pid = 0;
    SDKLOG(LOG_INFO) << "Invalid Old Process";
  } else if (record.m_pid != 0) {
    ResetPreload(info.m_name);
    SDKLOG(LOG_INFO) << "Reset PreLoad";
  }

  if (record.m_pid != 0 && !VexelSdkProcessUtil::IsProcessUsable(record.m_pid, info.m_path)) {
    SDKLOG(LOG_INFO) << "Preload Process Invalid. m_id=" << record.m_id << ", pid=" << record.m_pid;
    AddToKillList(record.m_pid);
    record.m_pid = 0;
  }

  if (record.m_pid == 0) {
    std::uint32_t pid = 0;
    if (VexelSdkProcessUtil::CreateProcessBy(info.m_path, info.m_args, pid) != 0) {
      return; // the browser hears nothing of this open
    }
    record.m_pid = pid;
    CreateHelper(record.m_pid, info.m_name);
    ResetPreload(info.m_name); // a process in use is never on file as preloaded
  }

  if (!BindIdToPid(record.m_id, record.m_pid)) { // finished meanwhile
    AddToKillList(record.m_pid);
    record.m_pid = 0;
  }
  ReportCustomMessage(record, record.m_pid != 0 ? "open_pic_process_success" : "open_pic_process_fail");
  SDKLOG(LOG_INFO) << "Use Process " << record.m_pid;
}

void VexelSDKThread::HandlePreLoadProcess() {
  EnsurePreLoad();
  PreloadIfMissing(kEditor);
  PreloadIfMissing(kLauncher);
}

void VexelSDKThread::EnsurePreLoad() {
  if (m_preloadStarted) {
    return;
  }
  m_preloadStarted = true;
  CreatePreLoadProcess(kLauncher); // the launcher first at the start, last at a refill
  CreatePreLoadProcess(kEditor);
}

void VexelSDKThread::PreloadIfMissing(const wchar_t* name) {
  if (GetPreloadPid(name) == 0) {
    SDKLOG(LOG_INFO) << "preload process not exist, create. name=" << name;
    CreatePreLoadProcess(name);
  }
}

void VexelSDKThread::CreatePreLoadProcess(const wchar_t* name) {
  const AppLaunchInfo info = AppLaunchTable::Instance().GetLaunchInfo(name);
  std::uint32_t pid = AppLaunchTable::Instance().ReadSavedPid(info.m_name);
  if (!VexelSdkProcessUtil::IsProcessUsable(pid, info.m_path)) {
    pid = 0;
    VexelSdkProcessUtil::CreateProcessBy(info.m_path, info.m_args, pid);
  }
  if (pid != 0) {
    CreateHelper(pid, name);
    SetPreloadPid(name, pid);
  }
  SDKLOG(LOG_INFO) << "done. pid=" << pid;
}

void VexelSDKThread::ResetPreload(const std::wstring& name) {
  SetPreloadPid(name, 0);
  AppLaunchTable::Instance().WriteSavedPid(name, 0);
}
