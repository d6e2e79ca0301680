// String and number helpers over fixed-size C buffers; none of them throws.
#pragma once

#include <list>
#include <string>

/// Inserts work::thousandsSeparator between digit groups in place, none when it is NUL (the
/// locale does not group); the buffer must hold the grouped text. Returns buffer.
char* format_number(char* buffer, unsigned long size);
/// True when each of the first n characters is 0-9 (true for n below 1).
bool str_isnumeric(const char* s, unsigned long n);
/// True when each of the first n characters is a letter or digit in the locale's sense.
bool str_isalphanumeric(const char* s, unsigned long n);
/// Replaces the character from by to among the first n characters; returns s.
char* str_replace(char* s, unsigned long n, int from, int to);
/// Replaces every occurrence of from by to, cutting the result to size-1 bytes; returns the
/// new length (0 after an allocation failure, which is logged).
unsigned long str_replace(char* s, unsigned long size, const char* from, const char* to);
char* str_tolower(char* s, unsigned long n);
char* str_toupper(char* s, unsigned long n);
/// Cuts text at every occurrence of delimiter; empty pieces are kept.
std::list<std::string> split(std::string text, std::string delimiter);
