#pragma once

#include <string>

namespace toolstest {

/// A line of a log: a thread, a second of one minute, the function's name with its message.
inline std::string Line(int thread, int second, const std::string& text, const std::string& level = "   INFO") {
  std::string id = std::to_string(thread);
  id.resize(id.size() < 5 ? 5 : id.size(), ' ');
  const std::string seconds = (second < 10 ? "0" : "") + std::to_string(second);
  return "[" + id + "|2026-11-21 06:35:" + seconds + "|" + level + "|file.cpp:20] " + text + "\r\n";
}

inline std::string Queued(int thread, int second, int op, int id) {
  return Line(thread, second,
              "VexelSDKThread::DoOperator m_op(SDK_Operator)=" + std::to_string(op) + ", m_id=" + std::to_string(id) +
                  ", m_pid=0");
}

inline std::string Sent(int thread, int second, const std::string& type, int id, int pid) {
  return Line(thread, second,
              "VexelSDKHelper::WriteOperator data={\"id\":" + std::to_string(id) +
                  ",\"process_id\":" + std::to_string(pid) + ",\"status\":true,\"type\":\"" + type + "\"}");
}

inline std::string Reply(int thread, int second) {
  return Line(thread, second, "VexelSDKHelper::WriteOperator respon=0, last_error=0");
}

/// A host that starts on thread `host`, with the operator thread `host` + 1, whose two preloads are `pid` and the
/// number behind it.
inline std::string Start(int host, int second, int pid) {
  const int op = host + 1;
  return Queued(host, second, 2, 0) + Line(op, second, "OperatorThreadFun data.m_op = SDK_PreLoadProcess") +
         Line(op, second, "VexelSdkProcessUtil::CreateProcessBy Process: " + std::to_string(pid)) +
         Line(op, second, "VexelSDKThread::CreatePreLoadProcess done. pid=" + std::to_string(pid)) +
         Line(op, second, "VexelSdkProcessUtil::CreateProcessBy Process: " + std::to_string(pid + 1)) +
         Line(op, second, "VexelSDKThread::CreatePreLoadProcess done. pid=" + std::to_string(pid + 1));
}

/// An open of `id` by that host, which takes the waiting process `pid` of the launcher.
inline std::string Open(int host, int second, int id, int pid) {
  const int op = host + 1;
  return Queued(host, second, 3, id) + Queued(host, second, 2, 0) +
         Line(op, second, "OperatorThreadFun data.m_op = SDK_OPEN data.m_id=" + std::to_string(id)) +
         Line(op, second, "VexelSDKThread::HandleOpenProcess nAppType=1, pName=webvexlaunch.exe") +
         Line(op, second, "VexelSDKThread::HandleOpenProcess Reset PreLoad") +
         Line(op, second, "VexelSDKThread::HandleOpenProcess Use Process " + std::to_string(pid)) +
         Line(op, second, "VexelSDKHelper::ConnectServer try failure. last_error=2, pid=" + std::to_string(pid),
              "  ERROR") +
         Line(op, second, "VexelSDKHelper::ConnectServer success. duration=21ms, pid=" + std::to_string(pid)) +
         Sent(op, second, "open", id, pid) + Reply(op, second) +
         Line(op, second, "OperatorThreadFun data.m_op = SDK_PreLoadProcess");
}

} // namespace toolstest
