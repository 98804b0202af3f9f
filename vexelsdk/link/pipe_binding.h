#pragma once

#include "platform/types.h"
#include "vexelsdk/link/pipe_contract.h"

// Finds the pipe library at run time and binds its entries. A library that can't be found, and an entry that it lacks,
// show as null entries and nothing else. Neither binding unloads the library: once in the process, it stays.

/// The directory of a module with a trailing separator into `buffer` of 520 units (null: the host's executable). False
/// when the module has no path, or a path without a backslash.
bool BuildModuleDirectory(platform::Module module, wchar_t* buffer);

/// The pipe library: the copy in the process if there is one, else the one beside `module` (null: beside the host's
/// executable). Null when there is neither. A bare name is never loaded, so the system's search path plays no part. A load that fails is tried
/// `tries` times in all: a server's binding looks twice at each place; a client's, made anew at each connect, once.
platform::Module LoadPipeLibrary(platform::Module module, int tries);

/// The client's entries. One thread at a time.
class PipeClientBinding {
public:
  PipeClientBinding();

  /// 0 without a library.
  std::uint32_t CltConnectServer(const char* name) const;
  /// Only with a connection, which proves that the entry is there.
  void CltDisConnect(std::uint32_t connection) const;
  /// Only with a connection.
  const char* CltComunicate(std::uint32_t connection, const char* text) const;

private:
  platform::Module m_module;
  CltConnectServerFun m_cltConnectServer = nullptr;
  CltDisConnectFun m_cltDisConnect = nullptr;
  CltComunicateFun m_cltComunicate = nullptr;
};

/// The server's entries. One thread at a time.
class PipeServerBinding {
public:
  PipeServerBinding();

  /// Null without a library.
  PipeServer* CreatePipeSvr() const;
  /// Nothing without a library.
  void ReleasePipeSvr(PipeServer* server) const;

private:
  platform::Module m_module;
  CreatePipeSvrFun m_createPipeSvr = nullptr;
  ReleasePipeSvrFun m_releasePipeSvr = nullptr;
};
