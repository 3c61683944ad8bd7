// The ways of a system to hinder the library's operations on files.
#ifndef KUPDATE_PROOF_STEPS_HINDRANCE_H_
#define KUPDATE_PROOF_STEPS_HINDRANCE_H_

#include <functional>
#include <string>

/// Natively `what` is the number of an operation on files, from 1, and `how` the code that it fails
/// with, or 0: the process ends before it. Under Windows `what` is a file and `how` the share mode
/// with which another program has it open.
void Hinder(const std::string& what, int how);
void HinderNothing();

/// Natively in a process of its own. Replies "undisturbed", "stopped ..." or "hindered ...".
void RunHindered(const std::function<void()>& work);

/// Writes a line for the program that judges.
void Reply(const std::string& line);

#endif  // KUPDATE_PROOF_STEPS_HINDRANCE_H_
