// SPDX-License-Identifier: BSD-3-Clause
// Anchor of the platform library; the classes live in their own files.
