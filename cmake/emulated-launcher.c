/* Host launcher for a cross-built program: a copy of this binary named
 * like the program sits in the build's emulated/ directory, beside a file
 * <name>.cmd holding, one per line, the emulator's command words and last
 * the program's path.  Being a host binary (not a script), it receives the
 * caller's argv[0] unchanged and hands it on to the program (qemu -0). */
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

int main(int argc, char **argv) {
  char cmd[PATH_MAX + 8] = {0};
  static char text[16384];
  char *words[64];
  char **args;
  ssize_t n = readlink("/proc/self/exe", cmd, PATH_MAX);
  FILE *f;
  size_t len;
  int nw = 0, k = 0, i;

  if (n < 0) {
    perror("readlink /proc/self/exe");
    return 127;
  }
  cmd[n] = '\0';
  strcat(cmd, ".cmd");
  f = fopen(cmd, "r");
  if (f == NULL) {
    perror(cmd);
    return 127;
  }
  len = fread(text, 1, sizeof text - 1, f);
  fclose(f);
  text[len] = '\0';
  for (char *w = strtok(text, "\n"); w != NULL && nw < 64; w = strtok(NULL, "\n"))
    words[nw++] = w;
  if (nw < 2) {
    fprintf(stderr, "%s: needs the emulator and the program\n", cmd);
    return 127;
  }
  args = calloc((size_t)nw + (size_t)argc + 3, sizeof *args);
  if (args == NULL) return 127;
  for (i = 0; i < nw - 1; i++) args[k++] = words[i];
  if (strstr(words[0], "qemu") != NULL) {
    args[k++] = "-0";
    args[k++] = argv[0];
  }
  args[k++] = words[nw - 1];
  for (i = 1; i < argc; i++) args[k++] = argv[i];
  args[k] = NULL;
  execvp(args[0], args);
  perror(args[0]);
  return 127;
}
