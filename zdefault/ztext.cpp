// SPDX-License-Identifier: Apache-2.0
#include "ztext.h"

#include <utility>

ZText::ZText(QString text) : m_text(std::move(text)) {}

bool ZText::operator==(const ZText &other) const { return m_text.compare(other.m_text, Qt::CaseInsensitive) == 0; }

bool ZText::operator<(const ZText &other) const { return m_text.compare(other.m_text, Qt::CaseInsensitive) < 0; }
