/* The executable of a bundle whose program is in Python. The kernel then names the bundle for the process,
   which a bundle started as "python3 program.py" cannot have: its executable is /usr/bin/python3.

   It runs Contents/Resources/python/__main__.py of its own bundle and nothing else: neither arguments nor
   the environment (PYTHONPATH, PYTHONSTARTUP) bring another program under the bundle's identity. */

#include <Python.h>
#include <limits.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

static const char program_folder[] = "/Resources/python";

/* The folder of the program, from <bundle>/Contents/Linux/<executable>. */
static int find_program(char* path, size_t size) {
  const ssize_t length = readlink("/proc/self/exe", path, size - sizeof program_folder);
  int level;
  if (length < 0) return 0;
  path[length] = '\0';
  for (level = 0; level < 2; ++level) {
    char* const slash = strrchr(path, '/');
    if (slash == NULL) return 0;
    *slash = '\0';
  }
  strcat(path, program_folder);
  return 1;
}

static PyStatus configure(PyConfig* config, int count, char** arguments, const char* program) {
  PyStatus status = PyConfig_SetBytesArgv(config, count, arguments);
  if (PyStatus_Exception(status)) return status;
  return PyConfig_SetBytesString(config, &config->run_filename, program);
}

int main(int count, char** arguments) {
  char program[PATH_MAX];
  PyConfig config;
  PyStatus status;
  if (!find_program(program, sizeof program)) {
    fputs("the program's bundle was not found\n", stderr);
    return 1;
  }
  PyConfig_InitIsolatedConfig(&config);
  config.parse_argv = 0;
  config.write_bytecode = 0; /* The bundle is replaced as a whole; nothing is added to it. */
  status = configure(&config, count, arguments, program);
  if (!PyStatus_Exception(status)) status = Py_InitializeFromConfig(&config);
  PyConfig_Clear(&config);
  if (PyStatus_Exception(status)) Py_ExitStatusException(status);
  return Py_RunMain();
}
