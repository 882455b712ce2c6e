/* A program someone planted under a name a command line runs (ping.exe): being run appends
 * "program <itself>" to the file that TVEJECT_PLANTED_MARK names. It imports winmm, as the
 * programs once did: beside the planted winmm.dll it shows that the loader takes that one. */
#include <windows.h>

#include <mmsystem.h>

int main(void) {
  char file[MAX_PATH], program[MAX_PATH];
  DWORD now = timeGetTime();
  (void)now;
  if (!GetEnvironmentVariableA("TVEJECT_PLANTED_MARK", file, sizeof file)) return 1;
  if (!GetModuleFileNameA(NULL, program, sizeof program)) program[0] = 0;
  HANDLE h = CreateFileA(file, FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, NULL,
                         OPEN_ALWAYS, 0, NULL);
  if (h == INVALID_HANDLE_VALUE) return 1;
  DWORD done;
  WriteFile(h, "program ", 8, &done, NULL);
  WriteFile(h, program, lstrlenA(program), &done, NULL);
  WriteFile(h, "\r\n", 2, &done, NULL);
  CloseHandle(h);
  return 0;
}
