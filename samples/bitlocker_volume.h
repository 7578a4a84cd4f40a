#pragma once

#include "samples/bytes.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>
#include <openssl/evp.h>
#include <string>

namespace test_support {

/// Makes BitLocker volumes: encrypted with AES-XTS of 128 bits, and unlocked by the
/// recovery key and the password below. That the layout is the right one is checked by
/// a test that has another tool read it.
class bitlocker_volume {
public:
    static constexpr const char *recovery_key =
        "471207-278498-422125-177177-561902-537405-468006-693451";
    static constexpr const char *password = "correct horse";

    /// `plain` is an NTFS volume of at most `size` bytes.
    static byte_vector encrypt(byte_vector plain)
    {
        plain.resize(size);
        byte_vector volume(size);
        for (u64 at = 0; at < size; at += sector) encrypt_sector(volume, at, plain, at);
        // The sectors that the header takes the place of.
        for (u64 at = 0; at < moved_bytes; at += sector)
            encrypt_sector(volume, moved_to + at, plain, at);
        put_bytes(volume, 0, header());
        for (const u64 place : metadata_places) put_bytes(volume, place, metadata());
        return volume;
    }

private:
    static constexpr u64 size = u64{4} << 20;
    static constexpr u64 sector = 512;
    static constexpr std::array<u64, 3> metadata_places{0x300000, 0x340000, 0x380000};
    static constexpr u64 moved_to = 0x3C0000;
    static constexpr u64 moved_bytes = 8192;
    static constexpr u64 some_time = 0x01D0'0000'0000'0000;

    // The volume is encrypted with the second key, that with the first one, and that
    // with what a user knows.
    enum class protector : u16 { recovery_key = 0x0800, password = 0x2000 };
    static byte_vector volume_key() { return sha256(bytes_of("volume")); }
    static byte_vector master_key() { return sha256(bytes_of("master")); }

    static void require(bool good)
    {
        if (!good) std::abort();
    }
    static byte_vector counted(u8 first, std::size_t count)
    {
        byte_vector bytes(count);
        for (u8 &byte : bytes) byte = first++;
        return bytes;
    }

    static byte_vector sha256(const byte_vector &bytes)
    {
        byte_vector sum(32);
        require(EVP_Digest(bytes.data(), bytes.size(), sum.data(), nullptr,
                           EVP_sha256(), nullptr) == 1);
        return sum;
    }

    using cipher = std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)>;
    static cipher new_cipher() { return {EVP_CIPHER_CTX_new(), &EVP_CIPHER_CTX_free}; }

    static void encrypt_sector(byte_vector &out, u64 to, const byte_vector &plain,
                               u64 from)
    {
        static const byte_vector key = volume_key();
        const cipher with = new_cipher();
        byte_vector number(16);
        put_number(number, 0, to / sector, 8);
        int count = 0;
        require(EVP_EncryptInit_ex(with.get(), EVP_aes_128_xts(), nullptr, key.data(),
                                   number.data()) == 1 &&
                EVP_EncryptUpdate(with.get(), out.data() + to, &count,
                                  plain.data() + from, sector) == 1);
    }

    // An entry of the metadata: its size, its type, the type of its value, a version.
    static byte_vector entry(u64 type, u64 value_type, const byte_vector &value)
    {
        byte_vector bytes;
        put_layout(
            bytes,
            {{0, 2, 8 + value.size()}, {2, 2, type}, {4, 2, value_type}, {6, 2, 1}});
        append(bytes, value);
        return bytes;
    }

    static byte_vector key_entry(u64 method, const byte_vector &key)
    {
        byte_vector value;
        put_number(value, 0, method, 4);
        append(value, key);
        return entry(0, 1, value);
    }

    // An entry with another one in it, encrypted with AES-CCM of 256 bits.
    static byte_vector locked_entry(u64 type, const byte_vector &key, u64 number,
                                    const byte_vector &secret)
    {
        byte_vector nonce;
        put_layout(nonce, {{0, 8, some_time}, {8, 4, number}});
        byte_vector tag(16);
        byte_vector packed(secret.size());
        const cipher with = new_cipher();
        int count = 0;
        const int bytes = static_cast<int>(secret.size());
        EVP_CIPHER_CTX *state = with.get();
        require(EVP_EncryptInit_ex(state, EVP_aes_256_ccm(), nullptr, nullptr,
                                   nullptr) == 1 &&
                EVP_CIPHER_CTX_ctrl(state, EVP_CTRL_AEAD_SET_IVLEN, 12, nullptr) == 1 &&
                EVP_CIPHER_CTX_ctrl(state, EVP_CTRL_AEAD_SET_TAG, 16, nullptr) == 1 &&
                EVP_EncryptInit_ex(state, nullptr, nullptr, key.data(), nonce.data()) ==
                    1 &&
                EVP_EncryptUpdate(state, nullptr, &count, nullptr, bytes) == 1 &&
                EVP_EncryptUpdate(state, packed.data(), &count, secret.data(), bytes) ==
                    1 &&
                EVP_EncryptFinal_ex(state, packed.data() + count, &count) == 1 &&
                EVP_CIPHER_CTX_ctrl(state, EVP_CTRL_AEAD_GET_TAG, 16, tag.data()) == 1);
        return entry(type, 5, joined({nonce, tag, packed}));
    }

    // A million rounds, which are to make guesses slow: nothing is allocated in one.
    static byte_vector stretched(const byte_vector &hash, const byte_vector &salt)
    {
        constexpr u64 rounds = 0x100000;
        byte_vector state = joined({byte_vector(32), hash, salt, byte_vector(8)});
        const std::unique_ptr<EVP_MD, decltype(&EVP_MD_free)> sha256{
            EVP_MD_fetch(nullptr, "SHA256", nullptr), &EVP_MD_free};
        const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> sum{
            EVP_MD_CTX_new(), &EVP_MD_CTX_free};
        for (u64 round = 0; round < rounds; ++round) {
            for (unsigned byte = 0; byte < 8; ++byte)
                state[80 + byte] = static_cast<u8>(round >> (8 * byte));
            require(EVP_DigestInit_ex(sum.get(), sha256.get(), nullptr) == 1 &&
                    EVP_DigestUpdate(sum.get(), state.data(), state.size()) == 1 &&
                    EVP_DigestFinal_ex(sum.get(), state.data(), nullptr) == 1);
        }
        return cut(state, 0, 32);
    }

    // Each group of digits is eleven times a number of two bytes.
    static byte_vector hash_of(protector kind)
    {
        byte_vector secret;
        if (kind == protector::recovery_key) {
            const std::string digits = recovery_key;
            for (std::size_t at = 0; at < digits.size(); at += 7)
                put_number(secret, secret.size(), std::stoul(digits.substr(at, 6)) / 11,
                           2);
            return sha256(secret);
        }
        for (const char c : std::string(password))
            put_number(secret, secret.size(), static_cast<u8>(c), 2);
        return sha256(sha256(secret));
    }

    // The first key, locked with what a user knows.
    static byte_vector protector_entry(protector kind, u8 number)
    {
        const byte_vector salt = counted(number, 16);
        const byte_vector key = stretched(hash_of(kind), salt);
        byte_vector method;
        put_number(method, 0, 0x1000, 4);
        const byte_vector spare =
            locked_entry(0, key, number, key_entry(0x1000, byte_vector(32)));
        byte_vector facts = counted(static_cast<u8>(16 + number), 16); // an identifier
        put_layout(facts, {{16, 8, some_time}, {26, 2, static_cast<u64>(kind)}});
        return entry(2, 8,
                     joined({facts, entry(0, 3, joined({method, salt, spare})),
                             locked_entry(0, key, number + 1U,
                                          key_entry(0x2003, master_key()))}));
    }

    static byte_vector entries()
    {
        byte_vector moved;
        put_layout(moved, {{0, 8, moved_to}, {8, 8, moved_bytes}});
        byte_vector description;
        put_utf16(description, 0, u"sample");
        description.resize(description.size() + 2);
        return joined(
            {entry(7, 2, description), protector_entry(protector::recovery_key, 1),
             protector_entry(protector::password, 3),
             locked_entry(3, master_key(), 5, key_entry(0x8004, volume_key())),
             entry(15, 15, moved)});
    }

    static byte_vector metadata()
    {
        static const byte_vector made = [] {
            constexpr u64 block_header = 64;
            constexpr u64 header_size = 48;
            const byte_vector list = entries();
            const u64 bytes = header_size + list.size();
            byte_vector block = bytes_of("-FVE-FS-");
            put_layout(block, {{8, 2, (block_header + bytes + 15) / 16},
                               {10, 2, 2}, // version
                               {12, 2, 4},
                               {14, 2, 4},
                               {16, 8, size},
                               {28, 4, moved_bytes / sector},
                               {32, 8, metadata_places[0]},
                               {40, 8, metadata_places[1]},
                               {48, 8, metadata_places[2]},
                               {56, 8, moved_to}});
            put_layout(block,
                       {{0, 4, bytes},
                        {4, 4, 1}, // version
                        {8, 4, header_size},
                        {12, 4, bytes},
                        {32, 4, 6},      // the next number for a locked entry
                        {36, 4, 0x8004}, // AES-XTS of 128 bits
                        {40, 8, some_time}},
                       block_header);
            put_bytes(block, block_header + 16, counted(32, 16));
            append(block, list);
            // What follows validates the block; not all readers look at it.
            byte_vector check;
            put_layout(check, {{0, 2, 8}});
            check.resize(8);
            append(block, check);
            return block;
        }();
        return made;
    }

    static byte_vector header()
    {
        byte_vector boot(sector);
        put_bytes(boot, 0, {0xEB, 0x58, 0x90});
        put_text(boot, 3, "-FVE-FS-");
        put_layout(boot, {{11, 2, sector},
                          {13, 1, 8}, // sectors of a cluster
                          {21, 1, 0xF8},
                          {64, 4, 0x290080},
                          {176, 8, metadata_places[0]},
                          {184, 8, metadata_places[1]},
                          {192, 8, metadata_places[2]},
                          {510, 2, 0xAA55}});
        put_bytes(boot, 160,
                  {0x3B, 0xD6, 0x67, 0x49, 0x29, 0x2E, 0xD8, 0x4A, 0x83, 0x99, 0xF6,
                   0xA3, 0x39, 0xE3, 0xD0, 0x01});
        return boot;
    }
};

} // namespace test_support
