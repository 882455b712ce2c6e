/* A winmm.dll someone planted beside a program: loading it appends "winmm <program>" to the file
 * that TVEJECT_PLANTED_MARK names. It exports the one function the programs ever took from
 * winmm, so that a program importing it starts as it would with the real one. */
#define WIN32_LEAN_AND_MEAN
#include <windows.h>

static void Mark(const char* what) {
  char file[MAX_PATH], program[MAX_PATH];
  if (!GetEnvironmentVariableA("TVEJECT_PLANTED_MARK", file, sizeof file)) return;
  if (!GetModuleFileNameA(NULL, program, sizeof program)) program[0] = 0;
  HANDLE h = CreateFileA(file, FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, NULL,
                         OPEN_ALWAYS, 0, NULL);
  if (h == INVALID_HANDLE_VALUE) return;
  DWORD done;
  WriteFile(h, what, lstrlenA(what), &done, NULL);
  WriteFile(h, " ", 1, &done, NULL);
  WriteFile(h, program, lstrlenA(program), &done, NULL);
  WriteFile(h, "\r\n", 2, &done, NULL);
  CloseHandle(h);
}

BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID reserved) {
  if (reason == DLL_PROCESS_ATTACH) Mark("winmm");
  return TRUE;
}

__declspec(dllexport) DWORD WINAPI timeGetTime(void) {
  return GetTickCount();
}
