"""Compares records of certificates (FOLDER/records.json) with what openssl prints of the same certificates
(FOLDER/0.der, 1.der ...). Tells differences on standard error and how many openssl could read on standard output.
record_peers.py FOLDER"""
import hashlib
import json
import re
import subprocess
import sys


def table(text):
    return dict(pair.split('=') for pair in text.split(';'))


TYPES = table('CN=2.5.4.3;SN=2.5.4.4;SERIALNUMBER=2.5.4.5;C=2.5.4.6;L=2.5.4.7;S=2.5.4.8;STREET=2.5.4.9;O=2.5.4.10;'
              'OU=2.5.4.11;T=2.5.4.12;G=2.5.4.42;I=2.5.4.43;E=1.2.840.113549.1.9.1;DC=0.9.2342.19200300.100.1.25')
ALGORITHMS = table(
    'md2WithRSAEncryption=md2RSA;md5WithRSAEncryption=md5RSA;sha1WithRSAEncryption=sha1RSA;'
    'sha256WithRSAEncryption=sha256RSA;sha384WithRSAEncryption=sha384RSA;sha512WithRSAEncryption=sha512RSA;'
    'rsassaPss=RSASSA-PSS;ecdsa-with-SHA1=sha1ECDSA;ecdsa-with-SHA256=sha256ECDSA;ecdsa-with-SHA384=sha384ECDSA;'
    'ecdsa-with-SHA512=sha512ECDSA;ED25519=Ed25519;ED448=Ed448;dsaWithSHA1=sha1DSA;dsa_with_SHA256=sha256DSA')
# Words for upper arcs of the tree of numbers, in damaged certificates; we tell the number.
NO_ALGORITHMS = ('ISO Member Body', 'org', 'data')
USAGES = table('TLS Web Server Authentication=Server Authentication;'
               'TLS Web Client Authentication=Client Authentication;E-mail Protection=Secure Email;'
               'Any Extended Key Usage=Any Purpose;0.4.0.2231.3.0=Trusted List Signing;'
               'Netscape Server Gated Crypto=2.16.840.1.113730.4.1')


def between(text, start, end):
    return text.partition(start)[2].partition(end)[0]


def digits(text):
    return re.sub('[^0-9A-Fa-f]', '', text).upper()


def extension(text, title):
    """The end of the title's line, and the lines below it; none."""
    found = re.search(rf'^ {{12}}{title}:(.*)\n((?: {{13}}.*\n|\n)*)', text, re.M)
    return found.groups() if found else ('', '')


def escaped(text):
    """Control characters as openssl writes them."""
    return re.sub(r'[\\\x00-\x1f\x7f]', lambda found: '\\\\' if found[0] == '\\' else f'\\{ord(found[0]):02X}', text)


def as_theirs(subject):
    """A subject of ours in openssl's form: one relative name a line, the first one first, numbers for types."""
    names = ['']
    for key, quoted, plain, end in re.findall(r'([^=]+)=(?:"((?:[^"]|"")*)"|(.*?))(\r\n| \+ |\Z)', subject, re.S):
        names[-1] += TYPES.get(key, key.partition('.')[2]) + '=' + (quoted.replace('""', '"') or plain)
        if end == ' + ':
            names[-1] += end
        else:
            names.append('')
    return ''.join(f'    {escaped(name)}\n' for name in reversed(names) if name)


def attribute(name, number=None):
    """The first value of that type in such lines; of any type when none is named."""
    kind = re.escape(number) if number else r'[^=\n]*?'
    return next(filter(None, re.findall(rf'^    (?:.*? \+ )?{kind}=(.*?)(?: \+ |$)', name, re.M)), '')


def display_name(name, alternative):
    for number in ('2.5.4.3', '2.5.4.11', '2.5.4.10', '1.2.840.113549.1.9.1'):
        if value := attribute(name, number):
            return value
    address = re.search('email:([^,\n]*)', alternative)
    return address[1] if address else attribute(name)


def stored_serial(shown):
    """A negative number is told by its stored octets, and a positive one with the zero that keeps it positive: callers
    look certificates up by these."""
    if not shown.startswith('-'):
        return ('00' if shown[0] >= '8' else '') + shown
    width = len(shown) - 1
    return f'{16 ** width - int(shown[1:], 16):0{width}X}'


def authority_key_id(text):
    """The key identifier, else the serial number that stands beside the issuer, its last octet first."""
    shown = extension(text, 'X509v3 Authority Key Identifier')[1]
    if 'DirName:' not in shown and 'serial:' not in shown:
        return digits(shown)
    if 'keyid:' in shown:
        return digits(between(shown, 'keyid:', '\n'))
    octets = re.findall('..', digits(between(shown, 'serial:', '\n')))
    return ''.join(reversed(octets)) if len(octets) > 1 else ''


def last_usage(shown):
    last = re.split(', |^ +', shown.split('\n')[0])[-1]
    return None if last in ('', '0') else [USAGES.get(last, last)]  # "0": usages that are none


def moment(shown):
    """2010-11-08 15:54:07. Our moments begin with the year 1601."""
    return '1601-01-01T00:00:00+00:00' if shown < '1601' else shown.replace(' ', 'T') + '+00:00'


def key_size(text):
    """The bits that openssl tells, or those of a curve that it knows by name alone; 0 for a key that is none."""
    bits = re.search(r'Public-Key: \((\d+) bit|(ED25519|X25519) Public-Key:|(ED448|X448) Public-Key:', text)
    return 0 if not bits else int(bits[1] or (256 if bits[2] else 456 if bits[3] == 'ED448' else 448))


def expected(record, der, text):
    """The record that ought to be there, its members in their order."""
    thumbprints = {'Thumbprint': hashlib.sha1(der).hexdigest().upper(),
                   'ThumbprintSHA256': hashlib.sha256(der).hexdigest().upper()}
    if not text:
        return {**record, **thumbprints}
    subject, issuer = between(text, 'subject=\n', 'issuer=\n'), between(text, 'issuer=\n', 'Certificate:\n')
    urls = re.findall('URI:(.*?)(?:  |$)', extension(text, 'X509v3 CRL Distribution Points')[1], re.M)
    title, usages = extension(text, 'X509v3 Extended Key Usage')
    # Where the two places of the algorithm differ, the outer one is what the signature was made with.
    algorithm = between(text, '\n    Signature Algorithm: ', '\n')
    # A value that openssl does not decode stands there as bytes with dots. We look no further than the identifier.
    undecoded = '..' in extension(text, 'X509v3 Authority Key Identifier')[1]
    members = {
        'Serial': stored_serial(between(text, 'serial=', '\n')),
        'CommonName': display_name(subject, extension(text, 'X509v3 Subject Alternative Name')[1]),
        'Issuer': display_name(issuer, extension(text, 'X509v3 Issuer Alternative Name')[1]),
        'Subject': '' if subject == '    \n' else subject,
        'Organization': attribute(subject, '2.5.4.10'),
        **thumbprints,
        'SignatureAlgorithm': record['SignatureAlgorithm'] if algorithm in NO_ALGORITHMS
                              else ALGORITHMS.get(algorithm, algorithm),
        'SubjectKeyId': digits(extension(text, 'X509v3 Subject Key Identifier')[1]),
        'AuthorityKeyId': record['AuthorityKeyId'] if undecoded else authority_key_id(text),
        'KeySize': key_size(text),
        'NotBefore': moment(between(text, 'notBefore=', 'Z\n')),
        'NotAfter': moment(between(text, 'notAfter=', 'Z\n')),
        'CRL': urls[-1:] or None,
        'EnhancedKeyUsage': None if 'critical' in title else last_usage(usages),
        'EnhancedKeyUsageCritical': last_usage(usages) if 'critical' in title else None,
    }
    return {key: value for key, value in members.items() if value is not None}


def main(folder):
    compared = 0
    with open(f'{folder}/records.json', encoding='utf-8') as file:
        records = json.load(file)
    for index, record in enumerate(records):
        where = record.pop('where')
        name = f'{folder}/{index}.der'
        shown = subprocess.run(['openssl', 'x509', '-inform', 'DER', '-in', name, '-noout', '-serial', '-startdate',
                                '-enddate', '-dateopt', 'iso_8601', '-subject', '-issuer', '-nameopt',
                                'utf8,oid,sep_multiline,esc_ctrl,dump_nostr,dump_der', '-text'], capture_output=True)
        text = shown.stdout.decode(errors='surrogateescape') if shown.returncode == 0 else ''
        compared += bool(text)
        with open(name, 'rb') as file:
            wanted = expected(record, file.read(), text)
        if text:
            record['Subject'] = as_theirs(record['Subject'])
            for key in ('CommonName', 'Issuer', 'Organization'):
                record[key] = escaped(record[key])
        if list(record.items()) != list(wanted.items()):
            print(where, 'differs:', record, 'and', wanted, file=sys.stderr)
    print(compared)


main(sys.argv[1])
