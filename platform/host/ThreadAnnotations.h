// SPDX-License-Identifier: MIT
#pragma once

// Clang's thread-safety analysis, with queues as the capabilities: state that belongs
// to a queue is marked, and the compiler checks every access. Other compilers ignore
// the marks.

#if defined(__clang__)
#define KV_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define KV_THREAD_ANNOTATION(x)
#endif

#define KV_CAPABILITY(name) KV_THREAD_ANNOTATION(capability(name))
// State that only code on this queue touches.
#define KV_ON_QUEUE(queue) KV_THREAD_ANNOTATION(guarded_by(queue))
// A function that only code on this queue calls.
#define KV_RUNS_ON(queue) KV_THREAD_ANNOTATION(requires_capability(queue))
// A run-time check that the analysis takes as proof.
#define KV_ASSERTS_ON_QUEUE(...) KV_THREAD_ANNOTATION(assert_capability(__VA_ARGS__))
