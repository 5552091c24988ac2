#pragma once

#include <cstddef>

/// Loads what capturing a call stack needs, so that a handler need not.
void prepareBackTrace();

/// Prints the call stack to standard output: "BACKTRACE" and a line for each of at most 24 callers.
void printBackTrace();

/// The same without names, module and address only; takes no memory.
void printPlainBackTrace();

/// Composes the line of frame \a number from \a symbol, "module(mangled+offset) rest" as the C
/// library writes it: " 1: module: demangled+offset rest" and a line end. A symbol of another shape
/// stands whole. Cuts \a symbol in place; the line is cut to \a size.
void formatBackTraceLine(char *line, std::size_t size, int number, char *symbol);
