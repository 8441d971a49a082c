// SPDX-License-Identifier: LicenseRef-plinthd
// Anchor of the platform library; the classes live in their own files.
