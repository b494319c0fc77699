// SPDX-License-Identifier: MIT

#pragma once

#include <stdarg.h>
#include <sys/types.h>

typedef struct FILE FILE;
typedef off_t fpos_t;

#define BUFSIZ 1024
#define EOF (-1)
#define FILENAME_MAX 1024
#define FOPEN_MAX 20
#define L_tmpnam 1024
#define SEEK_SET 0
#define SEEK_CUR 1
#define SEEK_END 2
#define TMP_MAX 308915776
#define _IOFBF 0
#define _IOLBF 1
#define _IONBF 2

#ifdef __cplusplus
extern "C" {
#endif

extern FILE* __stdinp;
extern FILE* __stdoutp;
extern FILE* __stderrp;
#define stdin __stdinp
#define stdout __stdoutp
#define stderr __stderrp

void clearerr(FILE* stream);
int fclose(FILE* stream);
FILE* fdopen(int file, const char* mode);
int feof(FILE* stream);
int ferror(FILE* stream);
int fflush(FILE* stream);
int fgetc(FILE* stream);
int fgetpos(FILE* stream, fpos_t* position);
char* fgets(char* text, int size, FILE* stream);
int fileno(FILE* stream);
FILE* fopen(const char* path, const char* mode);
int fprintf(FILE* stream, const char* format, ...);
int fputc(int c, FILE* stream);
int fputs(const char* text, FILE* stream);
size_t fread(void* to, size_t size, size_t count, FILE* stream);
FILE* freopen(const char* path, const char* mode, FILE* stream);
int fscanf(FILE* stream, const char* format, ...);
int fseek(FILE* stream, long offset, int whence);
int fseeko(FILE* stream, off_t offset, int whence);
int fsetpos(FILE* stream, const fpos_t* position);
long ftell(FILE* stream);
off_t ftello(FILE* stream);
size_t fwrite(const void* from, size_t size, size_t count, FILE* stream);
int getc(FILE* stream);
int getchar(void);
void perror(const char* text);
int printf(const char* format, ...);
int putc(int c, FILE* stream);
int putchar(int c);
int puts(const char* text);
int remove(const char* path);
int rename(const char* from, const char* to);
void rewind(FILE* stream);
int scanf(const char* format, ...);
void setbuf(FILE* stream, char* buffer);
int setvbuf(FILE* stream, char* buffer, int mode, size_t size);
int snprintf(char* to, size_t size, const char* format, ...);
int sprintf(char* to, const char* format, ...);
int sscanf(const char* text, const char* format, ...);
FILE* tmpfile(void);
char* tmpnam(char* name);
int ungetc(int c, FILE* stream);
int vfprintf(FILE* stream, const char* format, va_list arguments);
int vfscanf(FILE* stream, const char* format, va_list arguments);
int vprintf(const char* format, va_list arguments);
int vscanf(const char* format, va_list arguments);
int vsnprintf(char* to, size_t size, const char* format, va_list arguments);
int vsprintf(char* to, const char* format, va_list arguments);
int vsscanf(const char* text, const char* format, va_list arguments);

#ifdef __cplusplus
}
#endif
