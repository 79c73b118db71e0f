"""What the documentation of all modules that run zaldeploy says."""


class ModuleDocFragment:
    DOCUMENTATION = r'''
options:
  zaldeploy:
    description: The program, by its name or its path.
    type: path
    default: zaldeploy
  server:
    description: Folder of a simulated server to work on, in place of the host itself.
    type: path
  packages:
    description: Folders on the host that are packages, or hold several.
    type: list
    elements: path
  only:
    description: Names of packages, components or devices; all others are left out.
    type: list
    elements: str
    default: []
  trust:
    description: Files on the host of public keys that are trusted, besides those in C(/etc/flashlib/trusted.d).
    type: list
    elements: path
    default: []
  allow_unsigned:
    description: Run packages that nobody has signed. For development only.
    type: bool
    default: false
  timeout:
    description: Time limit of each component, in seconds.
    type: float
    default: 300
  wait:
    description: Wait so many seconds for another program that works on the firmware of the server.
    type: float
    default: 0
'''
